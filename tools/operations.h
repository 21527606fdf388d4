#pragma once

#include <CLI/App.hpp>
#include <string>

#include "foundation/ansistr.h"
#include "tools/exit_code.h"

namespace CryptCli {

/// The command line of "operations".
struct OperationsOptions {
  std::string name;  ///< empty for all
  bool json = false;
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddOperations(CLI::App& app, OperationsOptions& options);
/// Shows the named operations that "call" performs, with their arguments.
ExitCode RunOperations(const OperationsOptions& options);

/// What is wrong with the name of an operation, or with the names of its arguments (a JSON object): the first
/// unknown one, with a suggestion. Empty if all are known, or if the arguments are no JSON: the library says
/// so. Values are never quoted, since they may be secrets.
std::string CheckOperation(const std::string& name);
std::string CheckArgumentNames(const std::string& operation, const OruGuiBase::AnsiStr& arguments);

}  // namespace CryptCli

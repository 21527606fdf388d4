#pragma once

#include <CLI/App.hpp>
#include <string>

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

}  // namespace CryptCli

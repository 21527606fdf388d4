#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"

namespace CryptCli {

/// The command line of "inspect".
struct InspectOptions {
  std::string file;
  bool json = false;
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddInspect(CLI::App& app, InspectOptions& options);
/// Shows what a file says about itself. Nothing of it is verified, and no server is asked.
ExitCode RunInspect(const InspectOptions& options);

}  // namespace CryptCli

#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"

namespace CryptCli {

struct InspectOptions {
  std::string file;
  bool json = false;
};

CLI::App* AddInspect(CLI::App& app, InspectOptions& options);
/// Shows what a file says about itself. Nothing of it is verified, and no server is asked.
ExitCode RunInspect(const InspectOptions& options);

}  // namespace CryptCli

#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"
#include "tools/session.h"

namespace CryptCli {

/// The command line of "call".
struct CallOptions {
  SessionOptions session;
  std::string operation;
  std::string arguments;  ///< file with a JSON object, or "-" for standard input
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddCall(CLI::App& app, CallOptions& options);
/// Performs any named operation: a JSON object of arguments in, a JSON object of results out.
ExitCode RunCall(const CallOptions& options);

}  // namespace CryptCli

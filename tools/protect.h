#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"
#include "tools/session.h"

namespace CryptCli {

/// What "encrypt" and "decrypt" have in common on the command line.
struct ProtectOptions {
  SessionOptions session;
  std::string source;
  std::string target;
  bool force = false;
  bool requireVerified = false;  ///< "decrypt" alone
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddEncrypt(CLI::App& app, ProtectOptions& options);
CLI::App* AddDecrypt(CLI::App& app, ProtectOptions& options);

/// Protect a file for a room, and open a protected file. They report the result and return the exit code.
ExitCode RunEncrypt(const ProtectOptions& options);
ExitCode RunDecrypt(const ProtectOptions& options);

}  // namespace CryptCli

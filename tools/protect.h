#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/connection.h"
#include "tools/exitcode.h"

namespace CryptCli {

/// What "encrypt" and "decrypt" have in common on the command line.
struct ProtectOptions {
  Connection connection;
  std::string source;
  std::string target;
  bool force = false;
  bool json = false;
  bool requireVerified = false;  ///< "decrypt" alone
  int trace = 0;
};

/// Adds the subcommand, whose options go to `options`.
CLI::App* AddEncrypt(CLI::App& app, ProtectOptions& options);
CLI::App* AddDecrypt(CLI::App& app, ProtectOptions& options);

ExitCode RunEncrypt(const ProtectOptions& options);
ExitCode RunDecrypt(const ProtectOptions& options);

}  // namespace CryptCli

#pragma once

#include <CLI/App.hpp>
#include <cryptcli/cryptcli.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/bulk.h"
#include "tools/exit_code.h"
#include "tools/session.h"

namespace CryptCli {

/// What a command does with the file that it writes.
struct TargetOptions {
  std::string output;  ///< empty when the target is the last of the files
  std::string mode;    ///< octal; empty for that of any new file
  bool force = false;

  void AddOptions(CLI::App& command);
  std::optional<unsigned> GetMode() const;
};

/// Which origin "decrypt", "verify" and "rekey" accept; of "encrypt" the expected room alone.
struct AcceptOptions {
  std::string accept = "proven";
  std::optional<std::string> expectedRoom;

  /// Adds the options, and returns "--accept".
  CLI::Option* AddOptions(CLI::App& command);
  /// Adds "--expected-room" alone.
  void AddExpectedRoom(CLI::App& command, const char* help);
  void Apply(cryptcli::Call& call) const;
};

/// What "encrypt" and "decrypt" have in common on the command line.
struct ProtectOptions {
  SessionOptions session;
  TargetOptions target;
  std::vector<std::string> files;  ///< SOURCE and, unless --output names it, TARGET
  AcceptOptions origin;
  BulkOptions bulk;
};

/// The source that a word of the command line names: a file, or with "-" standard input.
cryptcli::Source GetSource(const std::string& name);

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddEncrypt(CLI::App& app, ProtectOptions& options);
CLI::App* AddDecrypt(CLI::App& app, ProtectOptions& options);

/// Protect a file for a room, and open a protected file. They report the result and return the exit code.
ExitCode RunEncrypt(const ProtectOptions& options);
ExitCode RunDecrypt(const ProtectOptions& options);

}  // namespace CryptCli

#pragma once

#include <CLI/App.hpp>
#include <cryptcli/cryptcli.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/exit_code.h"
#include "tools/file_list.h"
#include "tools/session.h"

namespace CryptCli {

/// The options of commands that take many files.
struct BulkOptions {
  std::string outputFolder;  ///< "encrypt" and "decrypt" alone
  std::string filesFrom;
  bool isNullSeparated = false;
  bool recursive = false;
  bool followLinks = false;
  unsigned jobs = 0;  ///< files at a time; 0 for the number of processors
  bool jsonLines = false;
  bool failFast = false;
  bool resume = false;  ///< "encrypt" and "decrypt" alone

  /// Adds the options that every such command has. `onlyProtected` as in BulkWork, for the help.
  void AddOptions(CLI::App& command, bool onlyProtected);
  /// Adds those of a command that writes a file for each.
  void AddTargetOptions(CLI::App& command);
  /// Whether any of them was given, so that even one file is handled as one of many.
  bool IsGiven() const { return GetFirst() != nullptr; }
  /// The name of one that was given; null if none was.
  const char* GetFirst() const;
};

/// What a command does with each of many files.
struct BulkWork {
  using Operation = std::function<cryptcli::Result<cryptcli::Report>(
      const cryptcli::Client& client, const std::string& source, const std::string& target,
      const cryptcli::Call& call)>;

  const char* operation = "";           ///< "encrypt"
  const char* label = "";               ///< for the progress: "Encrypting"
  const char* done = "";                ///< for the results: "Encrypted"
  std::optional<NameRule> targetNames;  ///< none: nothing is written, or the source itself
  bool onlyProtected = false;           ///< folders give only files with the suffix of protected ones
  bool force = false;                   ///< replaces existing targets
  std::optional<unsigned> mode;         ///< permissions of the targets
  Operation perform;                    ///< called on several threads at once
};

/// Does the work on all files and reports on each and on all. A file that fails does not stop the others,
/// unless that is asked for. Returns the worst code (see Worse).
ExitCode RunBulk(const BulkWork& work, const std::vector<std::string>& files, const BulkOptions& options,
                 const SessionOptions& session);

}  // namespace CryptCli

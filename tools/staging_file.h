#pragma once

#include <optional>
#include <string>

#include "foundation/ansistr.h"
#include "foundation/file.h"
#include "tools/files.h"

namespace CryptCli {

/// The file that an operation writes before its content becomes the target. A target that can be replaced
/// therefore appears complete or not at all, and an existing one stays until then. Owns the file and deletes
/// it on destruction unless it was committed.
class StagingFile {
 public:
  StagingFile() = default;
  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;
  ~StagingFile() = default;

  /// Creates the staging file. False with the reason when the source cannot be read, the target exists and
  /// `replace` is not set, or no file can be created beside it. A device or FIFO as target is written in
  /// place and does not need `replace`.
  bool Open(const std::string& source, const std::string& target, bool replace,
            OruGuiBase::AnsiStr& errorText);
  /// The same where there is no source. The target "-" is standard output.
  bool Open(const std::string& target, bool replace, OruGuiBase::AnsiStr& errorText);
  OruGuiBase::File GetFile() const { return file_.GetFile(); }
  std::string GetPath() const { return std::string(file_.GetPath().View()); }
  /// Whether the target is standard output, where the report would go as well.
  bool IsStandardOutput() const { return isStandardOutput_; }
  /// The permissions that a target of its own gets instead of those that it would have. Call before Open().
  void SetMode(std::optional<unsigned> mode) { mode_ = mode; }
  /// Moves the staging file to the target. False with the reason.
  bool Commit(OruGuiBase::AnsiStr& errorText);

 private:
  bool CheckSource(const std::string& source, OruGuiBase::AnsiStr& errorText) const;
  bool CheckTarget(const std::string& target, OruGuiBase::AnsiStr& errorText);
  bool CheckFile(const std::string& target, OruGuiBase::AnsiStr& errorText);
  bool Create();
  bool GiveMode() const;

  std::optional<unsigned> mode_;
  bool replace_ = false;
  bool isStandardOutput_ = false;
  std::string target_;
  OruGuiBase::TempFile file_;
};

/// Takes the permissions for group and others that are not in `mode` from every file that this process makes
/// from now on. Call before any thread is started.
void RestrictNewFiles(unsigned mode);

}  // namespace CryptCli

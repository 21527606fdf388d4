#pragma once

#include <string>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace CryptCli {

/// The file that an operation writes before its content is delivered to the target: so a target that can be
/// replaced appears complete or not at all, and one that was there before stays until it is replaced.
class StagingFile {
 public:
  StagingFile() = default;
  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;
  ~StagingFile() = default;

  /// Makes the staging file. False with the reason when the source cannot be read, the target is there
  /// already and may not be replaced, or nothing can be made beside it. A device or FIFO is written through
  /// and needs no leave to be replaced.
  bool Open(const std::string& source, const std::string& target, bool replace,
            OruGuiBase::AnsiStr& errorText);
  /// The same where there is no source.
  bool Open(const std::string& target, bool replace, OruGuiBase::AnsiStr& errorText);
  OruGuiBase::File GetFile() const { return file_.GetFile(); }
  std::string GetPath() const { return std::string(file_.GetPath().View()); }
  /// Whether the target is what the report goes to as well.
  bool IsStandardOutput() const { return isStandardOutput_; }
  /// Makes it the target. False with the reason.
  bool Commit(OruGuiBase::AnsiStr& errorText);

 private:
  bool CheckSource(const std::string& source, OruGuiBase::AnsiStr& errorText) const;
  bool CheckTarget(const std::string& target, OruGuiBase::AnsiStr& errorText);
  bool CheckFile(const std::string& target, OruGuiBase::AnsiStr& errorText);

  bool replace_ = false;
  bool isStandardOutput_ = false;
  std::string target_;
  OruGuiBase::TempFile file_;
};

}  // namespace CryptCli

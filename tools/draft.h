#pragma once

#include <string>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace CryptCli {

/// The file that an operation writes, beside the target that it becomes on success. So a target appears
/// complete or not at all, and one that was there before stays until it is replaced.
class Draft {
 public:
  Draft() = default;
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  /// Removes what has not become the target.
  ~Draft();

  /// Makes the draft. False with the reason when the source cannot be read, the target is there already and
  /// may not be replaced, or nothing can be made beside it.
  bool Open(const std::string& source, const std::string& target, bool replace,
            OruGuiBase::AnsiStr& errorText);
  /// The same where there is no source.
  bool Open(const std::string& target, bool replace, OruGuiBase::AnsiStr& errorText);
  OruGuiBase::File GetFile() const { return OruGuiBase::File(OruGuiBase::AnsiStr(path_)); }
  const std::string& GetPath() const { return path_; }
  /// Makes it the target. False with the reason.
  bool Commit(OruGuiBase::AnsiStr& errorText);

 private:
  bool CheckSource(const std::string& source, OruGuiBase::AnsiStr& errorText) const;
  bool CheckTarget(const std::string& target, OruGuiBase::AnsiStr& errorText);
  bool Make(OruGuiBase::AnsiStr& errorText);

  bool replace_ = false;
  unsigned mode_ = 0;
  std::string target_;
  std::string path_;
};

}  // namespace CryptCli

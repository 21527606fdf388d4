#pragma once

#include <cstdint>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "foundation/file.h"

// The two ends of a file operation. Both keep the reason of a failure in the error state.
namespace CryptCliC {

/// What is read: the file itself, or a private copy of what cannot seek, which ends with this object.
class Source {
 public:
  bool Open(const cryptcli_file& file);
  const OruGuiBase::File& GetFile() const { return file_; }
  std::uint64_t GetSize() const;

 private:
  bool CopyFrom(const OruGuiBase::File& stream);
  bool CopyFrom(int descriptor);

  OruGuiBase::TempFile copy_;
  OruGuiBase::File file_;
};

/// What is written: content gathers in a private file and becomes the target when it is delivered. Without
/// that the target stays as it was.
class Target {
 public:
  bool Open(const cryptcli_file& file);
  /// A private file that nobody gets, for content that is only looked at.
  bool OpenNowhere();
  /// Whether Deliver renames a complete file over the target, so that a failure leaves it as it was.
  bool IsReplacedInOneStep() const;
  OruGuiBase::File GetFile() const { return staging_.GetFile(); }
  std::uint64_t GetSize() const;
  bool Deliver();

 private:
  OruGuiBase::TempFile staging_;
  OruGuiBase::File target_;
  int descriptor_ = -1;
};

}  // namespace CryptCliC

#pragma once

#include <cstdint>
#include <ctime>
#include <sys/types.h>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "foundation/file.h"

// The two ends of a file operation. Both keep the reason of a failure in the error state.
namespace CryptCliC {

/// Whether there is anything to open: a path or a descriptor.
inline bool IsNamed(const cryptcli_file& file) {
  return file.path != nullptr || file.descriptor >= 0;
}

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

/// What tells whether a path still names the same file with the same content.
struct FileIdentity {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};
};

/// What is written: content gathers in a private file and becomes the target when it is delivered. Without
/// that the target stays as it was.
class Target {
 public:
  Target() = default;
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  ~Target();
  bool Open(const cryptcli_file& file);
  /// A private file that nobody gets, for content that is only looked at.
  bool OpenNowhere();
  /// Whether Replace can succeed, by what is known so far.
  bool IsReplaceable() const;
  /// Renames the complete file over the target, or fails and leaves that as it is. EXDEV if it cannot be
  /// replaced so; ESTALE if it is not the file any more that Open found.
  bool Replace();
  OruGuiBase::File GetFile() const { return staging_.GetFile(); }
  std::uint64_t GetSize() const;
  /// Waits until a named pipe has a reader; ECANCELED once the operation is cancelled. Deliver, which cannot
  /// be cancelled, does not wait for one then. Any other target is ready at once.
  bool AwaitReader();
  bool Deliver();

 private:
  OruGuiBase::TempFile staging_;
  OruGuiBase::File target_;
  FileIdentity found_;
  int descriptor_ = -1;
  bool isOurs_ = false;  ///< the descriptor: it is closed with this object
};

}  // namespace CryptCliC

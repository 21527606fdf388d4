#pragma once

#include <cstdint>
#include <ctime>
#include <sys/types.h>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "foundation/file.h"

// The source and the target of an operation on files. Both record the reason of a failure in the error state.
namespace CryptCliC {

/// Whether there is anything to open: a path or a descriptor.
inline bool IsNamed(const cryptcli_file& file) {
  return file.path != nullptr || file.descriptor >= 0;
}

/// What is read: the file itself, or a private copy of a source that cannot seek. Owns the copy and deletes
/// it on destruction. Lives on the stack of one operation.
class Source {
 public:
  bool Open(const cryptcli_file& file);
  const OruGuiBase::File& GetFile() const { return file_; }
  std::uint64_t GetSize() const;
  /// After Open has failed: whether the copy could not be written, which is no fault of what is read.
  bool HasNoCopy() const { return hasNoCopy_; }

 private:
  bool CopyFrom(const OruGuiBase::File& stream);
  bool CopyFrom(int descriptor);

  OruGuiBase::TempFile copy_;
  OruGuiBase::File file_;
  bool hasNoCopy_ = false;
};

/// Identifies a file and its content: two equal values for a path mean that nobody replaced or changed the
/// file between them.
struct FileIdentity {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};
};

/// What is written: content collects in a private staging file and becomes the target when it is delivered.
/// Until then the target is unchanged. Owns the staging file. Lives on the stack of one operation.
class Target {
 public:
  Target() = default;
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  ~Target();
  bool Open(const cryptcli_file& file);
  /// Makes a staging file that has no target, for content that is only examined.
  bool OpenNowhere();
  /// Whether Replace can succeed, by what is known so far.
  bool IsReplaceable() const;
  /// Renames the complete file over the target, or fails and leaves the target unchanged. EXDEV if a rename
  /// cannot replace it; ESTALE if it is no longer the file that Open found.
  bool Replace();
  OruGuiBase::File GetFile() const { return staging_.GetFile(); }
  std::uint64_t GetSize() const;
  /// Waits until a named pipe has a reader; ECANCELED if the operation is cancelled meanwhile. Called before
  /// Deliver, which cannot be cancelled and so must not wait. Any other target is ready at once.
  bool AwaitReader();
  /// Moves the content to the path of the target, or writes it to the descriptor or named pipe.
  bool Deliver();

 private:
  OruGuiBase::TempFile staging_;
  OruGuiBase::File target_;
  FileIdentity found_;
  int descriptor_ = -1;
  bool isOurs_ = false;  ///< the descriptor: it is closed with this object
};

}  // namespace CryptCliC

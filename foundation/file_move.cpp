// File::Move: how a finished file becomes the target of an operation. The operations of the client and its
// commands write to a temporary file first and end with it.

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/delivery.h"
#include "foundation/errno_saver.h"
#include "foundation/error_state_saver.h"
#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "foundation/posix_file.h"
#include "foundation/work_buffer.h"

namespace OruGuiBase {

namespace {

// O_NONBLOCK, because open() waits for a FIFO's other end. EXDEV for anything but a regular file: it cannot
// be copied.
int OpenRegular(const File& file) {
  if (file.IsPrivate()) return OpenPrivate(file.GetPath(), O_RDONLY);
  const int handle = OpenHandle(file.GetPath(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0);
  struct stat info {};
  if (handle < 0 || (::fstat(handle, &info) == 0 && S_ISREG(info.st_mode))) return handle;
  CloseHandle(handle);
  errno = EXDEV;
  return -1;
}

// EXDEV makes Move copy: a file system without access lists or with other groups cannot give this file the
// target's access, but a copy on the target's file system can have it, or the target is written in place.
bool GiveAccessOrCopy(int handle, const FileAccess& access) {
  if (GiveAccess(handle, access)) return true;
  errno = EXDEV;
  return false;
}

// The access is given before the name, while nobody else can open the file, so that the target never has a
// wider one. On failure the file is for its owner alone again.
bool RenamePrivate(const File& source, const File& target, const DeliveryTarget& judged, bool keepTarget) {
  FileAccess access = judged.access;
  if (!judged.exists && !AskNewFile(target.GetPath(), access)) return false;
  const int handle = OpenRegular(source);
  if (handle < 0) return false;
  const bool isMet = keepTarget || target.IsPrivate() || MeetsTarget(target.GetPath(), access);
  const bool done =
      isMet && GiveAccessOrCopy(handle, access) && Rename(source.GetPath(), target.GetPath(), keepTarget);
  const ErrnoSaver saver;
  if (!done) ::fchmod(handle, kOwnerOnly);
  CloseHandle(handle);
  return done;
}

// After EXDEV: another file system, or access that this file cannot have. A private file may also be copied
// when the target's directory takes no new files. An ordinary one may not: the refusal can come from its own
// directory, which would then not let it be removed after the copy.
bool MayBeCopied(const File& source, int code) {
  return code == EXDEV || (source.IsPrivate() && IsRefusalOfDirectory(code));
}

// Two names of one file. rename() does nothing then; a copy would overwrite the file with itself.
bool IsOneFile(const struct stat& source, const AnsiStr& target) {
  struct stat info {};
  return ::stat(target.GetText(), &info) == 0 && info.st_dev == source.st_dev && info.st_ino == source.st_ino;
}

bool CopyContent(int from, FileWriter& writer) {
  WorkBuffer buffer;
  if (!buffer.Alloc(kStreamBuffer)) return FailWith(ENOMEM);
  std::int64_t got = 0;
  while ((got = ReadAll(from, buffer.GetData(), buffer.GetSize(), -1)) > 0) {
    if (!writer.Write(buffer.GetData(), static_cast<std::uint32_t>(got))) return false;
  }
  return got == 0 || FailWithErrno();
}

// A target that is written in place is emptied first, and a disk that fills up then leaves neither content.
// So the space is reserved while the old content is still there. Opening the target gives it back: only a
// program that takes it in that moment can still be in the way. On failure the reservation is given back.
bool HasSpaceInPlace(int source, const File& target) {
  DeliveryTarget judged;
  struct stat from {};
  struct stat old {};
  if (JudgeTarget(target, judged) != DeliveryWay::InPlace) return true;
  if (::fstat(source, &from) != 0 || ::stat(target.GetPath().GetText(), &old) != 0) return true;
  if (!S_ISREG(old.st_mode) || old.st_size == 0) return true;
  FileWriter writer;
  // Without truncation. If it fails, so does the copy, which reports the reason.
  if (!writer.OpenAppend(target) || writer.Preallocate(from.st_size)) return true;
  const ErrorStateSaver saver;
  writer.Truncate(old.st_size);
  return false;
}

}  // namespace

bool File::Move(const File& target, bool keepTarget) const noexcept {
  ClearLastError();
  struct stat info {};
  if (!IsUsablePath(path_) || ::lstat(path_.GetText(), &info) != 0) return FailWithErrno();
  if (S_ISDIR(info.st_mode)) return FailWith(EISDIR);
  DeliveryTarget judged;
  const DeliveryWay way = JudgeTarget(target, judged);
  if (way == DeliveryWay::Failed) return FailWithErrno();
  // Rename() refuses it too; here it is refused before anything is copied.
  if (judged.exists && keepTarget) return FailWith(EEXIST);
  if (way == DeliveryWay::Replace || IsOneFile(info, target.path_)) {
    const bool isMoved = IsPrivate() ? RenamePrivate(*this, target, judged, keepTarget)
                                     : Rename(path_, target.path_, keepTarget);
    if (isMoved) return true;
    if (!MayBeCopied(*this, errno)) return FailWithErrno();
  }
  const int mode = IsPrivate() ? -1 : static_cast<int>(info.st_mode & kPermissions);
  return CopyTo(target, keepTarget, mode);
}

bool File::Replace(const File& target) const noexcept {
  ClearLastError();
  DeliveryTarget judged;
  const DeliveryWay way = JudgeTarget(target, judged);
  if (way == DeliveryWay::Failed) return FailWithErrno();
  if (way == DeliveryWay::InPlace || !IsPrivate()) return FailWith(EXDEV);
  return RenamePrivate(*this, target, judged, /*keepTarget=*/false) || FailWithErrno();
}

bool File::CopyTo(const File& target, bool keepTarget, int mode) const noexcept {
  const int source = OpenRegular(*this);
  if (source < 0) return FailWithErrno();
  FileWriter writer;
  FileWriter::StagingOptions options;
  options.keepTarget = keepTarget;
  options.mode = mode;
  const bool copied = HasSpaceInPlace(source, target) && writer.OpenStaged(target, options) &&
                      CopyContent(source, writer) && writer.Close();
  CloseHandle(source);
  // Removed only after Close succeeded, so that the content always exists once.
  return copied && (::unlink(path_.GetText()) == 0 || FailWithErrno());
}

}  // namespace OruGuiBase

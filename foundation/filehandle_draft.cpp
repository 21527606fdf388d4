#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "foundation/errorstate.h"
#include "foundation/errorstate_saver.h"
#include "foundation/posix_file.h"
#include "foundation/stream.h"

namespace OruGuiBase {

namespace {

constexpr unsigned kPermissions = 0777;

// What is to be replaced, if it is there.
struct Target {
  const AnsiStr& path;
  bool exists = false;
  mode_t mode = 0;
  gid_t group = 0;
};

// A link would be replaced itself, other names would keep the old content, a file of somebody else would
// change its owner, and what is no regular file is not to be replaced at all. Nobody sees into a private
// directory. False as well for what cannot be looked at, so that opening it tells why.
bool MayBeReplaced(Target& target) {
  struct stat info {};
  if (target.path.IsEmpty() || IsInPrivateDirectory(target.path)) return false;
  target.exists = ::lstat(target.path.GetText(), &info) == 0;
  if (!target.exists) return errno == ENOENT;
  target.mode = info.st_mode & kPermissions;
  target.group = info.st_gid;
  return S_ISREG(info.st_mode) && info.st_nlink == 1 && info.st_uid == ::geteuid() &&
         ::faccessat(AT_FDCWD, target.path.GetText(), W_OK, AT_EACCESS) == 0;
}

// A draft that cannot have the target's group would let in others than the target did.
bool TakeGroup(int handle, const Target& target) {
  struct stat info {};
  if (!target.exists) return true;
  return ::fstat(handle, &info) == 0 &&
         (info.st_gid == target.group || ::fchown(handle, static_cast<uid_t>(-1), target.group) == 0);
}

// A new file's mode is that of any other made beside it.
bool TakeMode(Target& target, const AnsiStr& draft) {
  if (target.exists) return true;
  const int mode = ModeOfNewFile(draft + ".mode");
  if (mode >= 0) target.mode = static_cast<mode_t>(mode);
  return mode >= 0;
}

void Remove(const AnsiStr& path) {
  const int reason = errno;
  ::unlink(path.GetText());
  errno = reason;
}

}  // namespace

// A draft that cannot be made beside a target that is there is no failure yet: the target is then written in
// place.
bool FileWriter::OpenDraft(const File& file) noexcept {
  Target target{file.GetPath()};
  if (!IsUsablePath(target.path) || !MayBeReplaced(target)) return Open(file);
  AnsiStr draft = ParentOf(target.path) + "/.orugui-XXXXXX";
  draft.Reserve(draft.GetLength());
  const int handle = ::mkostemp(const_cast<char*>(draft.GetText()), O_CLOEXEC);
  if (handle < 0) return target.exists ? Open(file) : FailWithErrno();
  if (!TakeGroup(handle, target) || !TakeMode(target, draft)) {
    Remove(draft);
    CloseHandle(handle);
    return Open(file);
  }
  DropFile();
  ClearLastError();
  handle_ = handle;
  draft_ = draft;
  target_ = target.path;
  targetMode_ = target.mode;
  return true;
}

// The mode comes last but one: until the name is right the owner alone may read.
bool FileWriter::FinishDraft() noexcept {
  const AnsiStr draft = std::exchange(draft_, AnsiStr());
  const bool hasMode = ::fchmod(handle_, targetMode_) == 0 || FailWithErrno();
  const int closing = std::exchange(handle_, -1);
  const bool isClosed = CloseHandle(closing) || (hasMode && FailWithErrno());
  if (hasMode && isClosed && (std::rename(draft.GetText(), target_.GetText()) == 0 || FailWithErrno()))
    return true;
  Remove(draft);
  return false;
}

void FileWriter::DropFile() noexcept {
  const ErrorStateSaver saver;
  if (handle_ >= 0) CloseHandle(std::exchange(handle_, -1));
  if (!draft_.IsEmpty()) Remove(std::exchange(draft_, AnsiStr()));
}

}  // namespace OruGuiBase

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>

#include "foundation/errorstate.h"
#include "foundation/errorstate_saver.h"
#include "foundation/filehandle.h"
#include "foundation/posix_file.h"

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

// Access that more than the permission bits tell, which a new file would not have.
bool HasList(const AnsiStr& path, const char* kind) {
  return ::getxattr(path.GetText(), kind, nullptr, 0) > 0;
}

// A file that is mounted in its place cannot be replaced, but only be written.
bool IsMounted(const AnsiStr& path) {
  struct statx info {};
  return ::statx(AT_FDCWD, path.GetText(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &info) == 0 &&
         (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// A link would be replaced itself, other names would keep the old content, a file of somebody else would
// change its owner, and what is no regular file is not to be replaced at all. An empty file has nothing to
// lose, and its maker, who may hold it open, chose who can read it.
bool IsReplaceable(const Target& target, const struct stat& info) {
  return S_ISREG(info.st_mode) && info.st_size > 0 && info.st_nlink == 1 && info.st_uid == ::geteuid() &&
         ::faccessat(AT_FDCWD, target.path.GetText(), W_OK, AT_EACCESS) == 0 && !IsMounted(target.path) &&
         !HasList(target.path, "system.posix_acl_access");
}

// Nobody sees into a private directory. False as well for what cannot be looked at, so that opening it tells
// why.
bool MayBeReplaced(Target& target) {
  struct stat info {};
  if (target.path.IsEmpty() || IsInPrivateDirectory(target.path) ||
      HasList(ParentOf(target.path), "system.posix_acl_default")) {
    return false;
  }
  target.exists = ::lstat(target.path.GetText(), &info) == 0;
  if (!target.exists) return errno == ENOENT;
  target.mode = info.st_mode & kPermissions;
  target.group = info.st_gid;
  return IsReplaceable(target, info);
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

// The directory takes no new files; anything else, such as a full disk, must not cost the old one.
bool IsRefusalOfDirectory(int code) {
  return code == EACCES || code == EPERM || code == EROFS;
}

// What the target became meanwhile counts as well: nobody may read who could not at either time, and only a
// file is replaced.
bool MeetsTarget(const AnsiStr& path, std::uint32_t& mode) {
  struct stat info {};
  if (::lstat(path.GetText(), &info) != 0) return errno == ENOENT;
  mode &= info.st_mode;
  if (S_ISREG(info.st_mode)) return true;
  errno = S_ISDIR(info.st_mode) ? EISDIR : EEXIST;
  return false;
}

void Remove(const AnsiStr& path) {
  const int reason = errno;
  ::unlink(path.GetText());
  errno = reason;
}

// In the place of a handle.
constexpr int kFailed = -1;
constexpr int kInPlace = -2;

// Begins the draft of a target, unless that is to be written in place after all. kFailed leaves errno.
int BeginDraft(const AnsiStr& path, AnsiStr& draft, std::uint32_t& mode) {
  Target target{path};
  if (!IsUsablePath(path) || !MayBeReplaced(target)) return kInPlace;
  draft = ParentOf(path) + "/.orugui-XXXXXX";
  draft.Reserve(draft.GetLength());
  const int handle = ::mkostemp(const_cast<char*>(draft.GetText()), O_CLOEXEC);
  if (handle < 0) return target.exists && IsRefusalOfDirectory(errno) ? kInPlace : kFailed;
  const bool hasMode = TakeMode(target, draft);
  mode = target.mode;
  if (hasMode && TakeGroup(handle, target)) return handle;
  const int reason = errno;
  Remove(draft);
  CloseHandle(handle);
  errno = reason;
  return hasMode ? kInPlace : kFailed;
}

}  // namespace

bool FileWriter::OpenDraft(const File& file) noexcept {
  AnsiStr draft;
  std::uint32_t mode = 0;
  const int handle = BeginDraft(file.GetPath(), draft, mode);
  if (handle == kInPlace) return Open(file);
  if (handle == kFailed) return FailWithErrno();
  DropFile();
  ClearLastError();
  handle_ = handle;
  draft_ = draft;
  target_ = file.GetPath();
  targetMode_ = mode;
  return true;
}

// The mode comes last but one: until the name is right the owner alone may read.
bool FileWriter::FinishDraft() noexcept {
  const AnsiStr draft = std::exchange(draft_, AnsiStr());
  const bool isReady =
      (MeetsTarget(target_, targetMode_) && ::fchmod(handle_, targetMode_) == 0) || FailWithErrno();
  const bool isClosed = CloseHandle(std::exchange(handle_, -1)) || (isReady && FailWithErrno());
  if (isReady && isClosed && (std::rename(draft.GetText(), target_.GetText()) == 0 || FailWithErrno()))
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

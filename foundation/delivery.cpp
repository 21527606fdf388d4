// How content reaches its target without loss: whether a target can be replaced, what access its replacement
// gets, and the staging file that is renamed over it. FileWriter, File::Move and TempFile share these
// decisions.

#include "foundation/delivery.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "foundation/errno_saver.h"
#include "foundation/posix_file.h"
#include "foundation/unfinished_list.h"
#include "foundation/work_buffer.h"

namespace OruGuiBase {

namespace {

// The extended attribute in which the kernel keeps a POSIX access control list (acl(5)).
constexpr const char* kList = "system.posix_acl_access";

// Whether errno `code` means that the file has no access control list, or that its file system does not
// support them.
bool IsWithoutList(int code) {
  return code == ENODATA || code == EOPNOTSUPP || code == ENOSYS;
}

// True also if the list cannot be read: the safe assumption is that there is one.
bool HasList(const AnsiStr& path) {
  return ::lgetxattr(path.GetText(), kList, nullptr, 0) >= 0 || !IsWithoutList(errno);
}

// rename() cannot replace a file that is a mount point; writing into it works.
bool IsMounted(const AnsiStr& path) {
  struct statx info {};
  return ::statx(AT_FDCWD, path.GetText(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &info) == 0 &&
         (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool IsReplaceable(const AnsiStr& path, const struct stat& info) {
  return S_ISREG(info.st_mode) && info.st_size > 0 && info.st_nlink == 1 && info.st_uid == ::geteuid() &&
         ::faccessat(AT_FDCWD, path.GetText(), W_OK, AT_EACCESS) == 0 && !IsMounted(path) && !HasList(path);
}

ssize_t GetList(int handle, void* bytes, std::size_t size) {
  return ::fgetxattr(handle, kList, bytes, size);
}
ssize_t GetList(const AnsiStr& path, void* bytes, std::size_t size) {
  return ::lgetxattr(path.GetText(), kList, bytes, size);
}

// Reads the list of an open file (a handle) or of a path.
template <typename Place>
bool ReadList(const Place& place, AnsiStr& list) {
  list.Clear();
  const ssize_t size = GetList(place, nullptr, 0);
  if (size < 0) return IsWithoutList(errno);
  const auto capacity = static_cast<std::uint32_t>(size);
  WorkBuffer bytes;
  if (!bytes.Alloc(capacity)) {
    errno = ENOMEM;
    return false;
  }
  const ssize_t got = GetList(place, bytes.GetData(), capacity);
  if (got < 0) return IsWithoutList(errno);
  list = AnsiStr(reinterpret_cast<const char*>(bytes.GetData()), static_cast<std::uint32_t>(got));
  return true;
}

// The list without permissions that `mode` does not have. Setting a list also sets the permission bits, so
// until the mode is set it must not be wider.
//
// The kernel's form (linux/posix_acl_xattr.h): a head of four bytes, then entries of eight, little-endian:
// two bytes for the tag (0x01 owner, 0x04 group, 0x10 mask, 0x20 others), two for the permissions, four for
// the id. A list with more than three entries has a mask, and then the group bits of the mode are those of
// the mask.
AnsiStr NarrowList(const AnsiStr& list, unsigned mode) {
  constexpr std::uint32_t kHead = 4;
  constexpr std::uint32_t kEntry = 8;
  AnsiStr narrowed(list.GetText(), list.GetLength());
  auto* const bytes = const_cast<char*>(narrowed.GetText());
  const char group = list.GetLength() > kHead + 3 * kEntry ? 0x10 : 0x04;
  for (std::uint32_t i = kHead; i + kEntry <= list.GetLength(); i += kEntry) {
    if (bytes[i] == 0x01) bytes[i + 2] &= static_cast<char>(mode >> 6U & 7U);
    if (bytes[i] == group) bytes[i + 2] &= static_cast<char>(mode >> 3U & 7U);
    if (bytes[i] == 0x20) bytes[i + 2] &= static_cast<char>(mode & 7U);
  }
  return narrowed;
}

// Removes the list that a staging file got from its directory if the target had none: that list is for new
// files, not for replaced ones.
bool GiveList(int handle, const AnsiStr& list) {
  if (!list.IsEmpty()) return ::fsetxattr(handle, kList, list.GetText(), list.GetLength(), 0) == 0;
  if (::fgetxattr(handle, kList, nullptr, 0) < 0) return IsWithoutList(errno);
  return ::fremovexattr(handle, kList) == 0;
}

bool ReadAccess(int handle, FileAccess& access) {
  struct stat info {};
  if (::fstat(handle, &info) != 0) return false;
  access.mode = info.st_mode & kPermissions;
  access.group = info.st_gid;
  return ReadList(handle, access.list);
}

// A name in the directory that no other file has, except by a chance of one in 2^32; O_EXCL detects that.
bool MakeProbeName(const AnsiStr& directory, AnsiStr& name) {
  std::uint32_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != sizeof number) return false;
  char text[32];
  std::snprintf(text, sizeof text, "/.orugui-%08x.mode", number);
  name = directory + text;
  return true;
}

// Opens an empty file in the directory of `path` that has no name any more. Returns a handle, or -1.
int OpenProbe(const AnsiStr& path, unsigned mode) {
  const UnfinishedScope scope;
  AnsiStr probe;
  if (!scope.IsOpen() || !MakeProbeName(ParentOf(path), probe)) return -1;
  const int handle = OpenHandle(probe, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
  const ErrnoSaver saver;
  if (handle >= 0) ::unlink(probe.GetText());
  return handle;
}

// True if a new private file would look the same. Some file systems store neither owners nor modes; a private
// file is accepted there as it is.
bool IsLikeAnyOther(const AnsiStr& path, const struct stat& info) {
  const int handle = OpenProbe(path, kOwnerOnly);
  struct stat made {};
  const bool isLike = handle >= 0 && ::fstat(handle, &made) == 0 && made.st_dev == info.st_dev &&
                      made.st_uid == info.st_uid && made.st_mode == info.st_mode;
  if (handle >= 0) CloseHandle(handle);
  return isLike;
}

bool IsAsMade(int handle, const AnsiStr& path) {
  constexpr unsigned kOfOthers = 077;
  struct stat info {};
  if (::fstat(handle, &info) != 0) return false;
  const bool isOurs = info.st_uid == ::geteuid() && (info.st_mode & kOfOthers) == 0;
  if (S_ISREG(info.st_mode) && info.st_nlink == 1 && (isOurs || IsLikeAnyOther(path, info))) return true;
  errno = ESTALE;
  return false;
}

}  // namespace

DeliveryWay JudgeTarget(const File& target, DeliveryTarget& judged) noexcept {
  const AnsiStr& path = target.GetPath();
  struct stat info {};
  if (!IsUsablePath(path)) return DeliveryWay::Failed;
  judged.exists = ::lstat(path.GetText(), &info) == 0;
  if (!judged.exists) return errno == ENOENT && !path.IsEmpty() ? DeliveryWay::Replace : DeliveryWay::Failed;
  judged.access = {info.st_mode & kPermissions, info.st_gid, AnsiStr()};
  if (target.IsPrivate()) {
    // A private target stays for its owner alone, whatever is there now.
    judged.access.mode = kOwnerOnly;
    return DeliveryWay::Replace;
  }
  return IsReplaceable(path, info) ? DeliveryWay::Replace : DeliveryWay::InPlace;
}

int OpenPrivate(const AnsiStr& path, int flags) noexcept {
  const int handle = OpenHandle(path, flags | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, 0);
  if (handle < 0 || IsAsMade(handle, path)) return handle;
  const ErrnoSaver saver;
  CloseHandle(handle);
  return -1;
}

// umask() can only be read by changing it, which other threads would notice. A new file shows it too. The
// file's name is removed while OpenProbe holds its UnfinishedScope, so it need not be listed.
bool AskNewFile(const AnsiStr& path, FileAccess& access) noexcept {
  const int handle = OpenProbe(path, kOrdinaryMode);
  if (handle < 0) return false;
  const bool isKnown = ReadAccess(handle, access);
  const ErrnoSaver saver;
  CloseHandle(handle);
  return isKnown;
}

// Nobody may read the new file who could not read the target before or now. Lists are only compared as a
// whole.
bool MeetsTarget(const AnsiStr& path, FileAccess& access) noexcept {
  struct stat info {};
  if (::lstat(path.GetText(), &info) != 0) return errno == ENOENT;
  if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EEXIST;
    return false;
  }
  AnsiStr list;
  if (!ReadList(path, list)) return false;
  access.mode &= info.st_mode;
  if (info.st_uid == ::geteuid() && info.st_gid == access.group && list == access.list) return true;
  errno = EBUSY;
  return false;
}

bool GiveGroup(int handle, const FileAccess& access) noexcept {
  struct stat info {};
  return ::fstat(handle, &info) == 0 &&
         (info.st_gid == access.group || ::fchown(handle, static_cast<uid_t>(-1), access.group) == 0);
}

// The mode is last, since setting a group or a list can clear or widen permission bits.
bool GiveAccess(int handle, const FileAccess& access) noexcept {
  return GiveGroup(handle, access) && GiveList(handle, NarrowList(access.list, access.mode)) &&
         ::fchmod(handle, access.mode) == 0;
}

int MakeStaging(const AnsiStr& target, AnsiStr& path) noexcept {
  const UnfinishedScope scope;
  if (!scope.IsOpen()) return -1;
  path = AbsolutePath(ParentOf(target)) + "/.orugui-XXXXXX";
  path.Reserve(path.GetLength());
  // mkostemp writes the name that it found into the string, which Reserve made sure is not shared.
  const int handle = ::mkostemp(const_cast<char*>(path.GetText()), O_CLOEXEC);
  if (handle < 0 || AddUnfinished(path, UnfinishedType::File)) return handle;
  const ErrnoSaver saver;
  ::unlink(path.GetText());
  CloseHandle(handle);
  return -1;
}

bool IsRefusalOfDirectory(int code) noexcept {
  return code == EACCES || code == EPERM || code == EROFS;
}

// Where the file system does not support RENAME_NOREPLACE, link() does the same: it fails if the name exists.
bool Rename(const AnsiStr& source, const AnsiStr& target, bool keepTarget) noexcept {
  if (!keepTarget) return std::rename(source.GetText(), target.GetText()) == 0;
  if (::renameat2(AT_FDCWD, source.GetText(), AT_FDCWD, target.GetText(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (::link(source.GetText(), target.GetText()) != 0) return false;
  if (::unlink(source.GetText()) == 0) return true;
  const ErrnoSaver saver;
  ::unlink(target.GetText());
  return false;
}

}  // namespace OruGuiBase

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "foundation/posix_file.h"

namespace OruGuiBase {

namespace {

constexpr unsigned kPermissions = 0777;

// A move under way. The operations leave errno on failure.
struct Movement {
  const AnsiStr& source;
  const AnsiStr& target;
  bool keepTarget;
  mode_t oldMode = 0;
  mode_t newMode = 0;
};

// Where the file system has no renaming that spares the target, a second name does the same.
bool RenameUnlessThere(const char* source, const char* target) {
  if (::renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (::link(source, target) != 0) return false;
  if (::unlink(source) == 0) return true;
  const int reason = errno;
  ::unlink(target);
  errno = reason;
  return false;
}

bool Rename(const AnsiStr& source, const AnsiStr& target, bool keepTarget) {
  if (keepTarget) return RenameUnlessThere(source.GetText(), target.GetText());
  return std::rename(source.GetText(), target.GetText()) == 0;
}

// A private file leaves its privacy when it is delivered: it gets the mode of the file that it replaces, or
// that of any new file. Others keep theirs.
bool ChooseModes(Movement& move) {
  struct stat info {};
  if (::lstat(move.source.GetText(), &info) != 0) return false;
  if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
    return false;
  }
  move.oldMode = move.newMode = info.st_mode & kPermissions;
  if (!S_ISREG(info.st_mode) || !IsInPrivateDirectory(move.source)) return true;
  if (::stat(move.target.GetText(), &info) == 0 && S_ISREG(info.st_mode)) {
    move.newMode = info.st_mode & kPermissions;
    return true;
  }
  // No name that MakeName gives begins with a dot.
  const int mode = ModeOfNewFile(ParentOf(move.source) + "/.mode");
  if (mode >= 0) move.newMode = static_cast<mode_t>(mode);
  return mode >= 0;
}

// The mode is set first, while the private directory still hides the file, so that the target never shows
// with another one.
bool MoveByName(const Movement& move) {
  const bool changes = move.newMode != move.oldMode;
  if (changes && ::chmod(move.source.GetText(), move.newMode) != 0) return false;
  if (Rename(move.source, move.target, move.keepTarget)) return true;
  const int reason = errno;
  if (changes) ::chmod(move.source.GetText(), move.oldMode);
  errno = reason;
  return false;
}

bool CopyThrough(void* buffer, int from, int into) {
  std::int64_t got = 0;
  while ((got = ReadAll(from, buffer, kStreamBuffer, -1)) > 0) {
    if (!WriteAll(into, buffer, static_cast<std::uint32_t>(got))) return false;
  }
  return got == 0;
}

bool CopyContent(int from, int into) {
  void* const buffer = AllocParticle(kStreamBuffer);
  if (buffer == nullptr) {
    errno = ENOMEM;
    return false;
  }
  const bool copied = CopyThrough(buffer, from, into);
  const int reason = errno;
  WipeMemory(buffer, kStreamBuffer);
  FreeParticle(kStreamBuffer, buffer);
  errno = reason;
  return copied;
}

// Opens without waiting, as a pipe would make it wait; only a regular file can be copied.
int OpenRegular(const AnsiStr& path) {
  const int handle = OpenHandle(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0);
  struct stat info {};
  if (handle < 0 || (::fstat(handle, &info) == 0 && S_ISREG(info.st_mode))) return handle;
  CloseHandle(handle);
  errno = EXDEV;
  return -1;
}

bool FillSibling(const Movement& move, int sibling) {
  const int source = OpenRegular(move.source);
  if (source < 0) return false;
  const bool filled = CopyContent(source, sibling) && ::fchmod(sibling, move.newMode) == 0;
  const int reason = errno;
  CloseHandle(source);
  errno = reason;
  return filled;
}

// Copies to a file beside the target that takes its place when it is whole.
bool MoveByCopy(const Movement& move) {
  AnsiStr sibling = ParentOf(move.target) + "/.orugui-XXXXXX";
  const int handle = ::mkostemp(const_cast<char*>(sibling.GetText()), O_CLOEXEC);
  if (handle < 0) return false;
  bool done = FillSibling(move, handle);
  int reason = errno;
  // Closing reports what the system held back until now.
  if (!CloseHandle(handle) && done) {
    done = false;
    reason = errno;
  }
  if (done && Rename(sibling, move.target, move.keepTarget)) return ::unlink(move.source.GetText()) == 0;
  if (done) reason = errno;
  ::unlink(sibling.GetText());
  errno = reason;
  return false;
}

}  // namespace

bool File::Move(const File& target, bool keepTarget) const noexcept {
  ClearLastError();
  Movement move{path_, target.path_, keepTarget};
  if (!IsUsablePath(path_) || !IsUsablePath(target.path_) || !ChooseModes(move)) return FailWithErrno();
  if (MoveByName(move) || (errno == EXDEV && MoveByCopy(move))) return true;
  return FailWithErrno();
}

}  // namespace OruGuiBase

// POSIX calls that all file operations here share: repeated after a signal, and refused for paths that the
// system would see in part only.

#include "foundation/posix_file.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/threadobserver.h"

namespace OruGuiBase {

bool FailWithErrno() noexcept {
  SetLastErrorFromErrno();
  return false;
}

// Also sets errno, because some callers look at it after a failed operation of this library.
bool FailWith(int code) noexcept {
  errno = code;
  return FailWithErrno();
}

bool IsUsablePath(const AnsiStr& path) noexcept {
  if (path.Find('\0') == AnsiStr::npos) return true;
  errno = EINVAL;
  return false;
}

// O_CLOEXEC: a program that the application starts must not inherit content or keys.
int OpenHandle(const AnsiStr& path, int flags, unsigned mode) noexcept {
  if (!IsUsablePath(path)) return -1;
  int handle = -1;
  do {
    handle = ::open(path.GetText(), flags | O_CLOEXEC, mode);
  } while (handle < 0 && errno == EINTR);
  return handle;
}

bool CloseHandle(int handle) noexcept {
  return ::close(handle) == 0 || errno == EINTR;
}

// read() may return fewer bytes than asked for, from a pipe or after a signal; only 0 means the end.
std::int64_t ReadAll(int handle, void* buffer, std::uint32_t size, std::int64_t offset) noexcept {
  auto* const bytes = static_cast<char*>(buffer);
  std::uint32_t done = 0;
  while (done < size) {
    const ssize_t got = offset < 0 ? ::read(handle, bytes + done, size - done)
                                   : ::pread(handle, bytes + done, size - done, offset + done);
    if (got == 0) break;
    if (got > 0) {
      done += static_cast<std::uint32_t>(got);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return done;
}

bool WriteAll(int handle, const void* data, std::uint32_t size) noexcept {
  const auto* const bytes = static_cast<const char*>(data);
  std::uint32_t done = 0;
  while (done < size) {
    const ssize_t put = ::write(handle, bytes + done, size - done);
    if (put >= 0) {
      done += static_cast<std::uint32_t>(put);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

AnsiStr ParentOf(const AnsiStr& path) noexcept {
  const std::string_view text = path.View();
  const std::size_t slash = text.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return slash == 0 ? AnsiStr("/") : AnsiStr(text.substr(0, slash));
}

// Without realpath(): the file need not exist, and links in the path stay as the caller wrote them.
AnsiStr AbsolutePath(const AnsiStr& path) noexcept {
  char directory[PATH_MAX];
  if (path.IsEmpty() || path.View().front() == '/' || ::getcwd(directory, sizeof directory) == nullptr)
    return path;
  const AnsiStr absolute = AnsiStr(directory) + "/" + path;
  return absolute.GetLength() < PATH_MAX ? absolute : path;
}

// secure_getenv: a program with raised privileges must not write where its caller wants.
AnsiStr TemporaryDirectory() noexcept {
  const IThreadObserver* const observer = GetThreadObserver();
  const char* named = observer != nullptr ? observer->GetTemporaryDirectory() : nullptr;
  if (named == nullptr) named = ::secure_getenv("TMPDIR");
  std::string_view path = named != nullptr ? named : "";
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path.empty() ? AnsiStr("/tmp") : AnsiStr(path);
}

}  // namespace OruGuiBase

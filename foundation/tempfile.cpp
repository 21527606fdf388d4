#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/errorstate_saver.h"
#include "foundation/file.h"
#include "foundation/posix_file.h"

namespace OruGuiBase {

namespace {

constexpr std::string_view kPrivatePrefix = "orugui-";
constexpr std::string_view kTempEnding = ".tmp";
constexpr std::size_t kLongestName = 255;

bool IsContinuationByte(char character) {
  return (static_cast<unsigned char>(character) & 0xC0) == 0x80;
}

// The most bytes that a name in the directory may have, or what file systems commonly take.
std::size_t NameLimit(const AnsiStr& directory) {
  const long limit = ::pathconf(directory.GetText(), _PC_NAME_MAX);
  return limit > 16 && limit < static_cast<long>(kLongestName) ? static_cast<std::size_t>(limit)
                                                               : kLongestName;
}

// Cuts a name that is too long between two characters and keeps its ending.
AnsiStr ShortenName(const AnsiStr& name, std::size_t limit) {
  const std::string_view text = name.View();
  if (text.size() <= limit) return name;
  const std::string_view ending = text.ends_with(kTempEnding) ? kTempEnding : std::string_view();
  std::size_t length = limit - ending.size();
  while (length > 0 && IsContinuationByte(text[length])) --length;
  AnsiStr shortened(text.substr(0, length));
  return shortened.Append(ending);
}

}  // namespace

AnsiStr TemporaryDirectory() noexcept {
  const char* const named = ::secure_getenv("TMPDIR");
  std::string_view path = named != nullptr ? named : "";
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path.empty() ? AnsiStr("/tmp") : AnsiStr(path);
}

AnsiStr MakePrivateFile(const AnsiStr& name) noexcept {
  AnsiStr directory = TemporaryDirectory() + "/" + AnsiStr(kPrivatePrefix) + "XXXXXX";
  directory.Reserve(directory.GetLength());
  // mkdtemp writes the name that it found into the text, which nobody shares.
  if (::mkdtemp(const_cast<char*>(directory.GetText())) == nullptr) return {};
  AnsiStr path = directory + "/" + ShortenName(File::MakeName(name), NameLimit(directory));
  constexpr unsigned kOwnerOnly = 0600;
  const int handle = OpenHandle(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kOwnerOnly);
  if (handle < 0) {
    const int reason = errno;
    ::rmdir(directory.GetText());
    errno = reason;
    return {};
  }
  CloseHandle(handle);
  return path;
}

bool IsInPrivateDirectory(const AnsiStr& path) noexcept {
  const AnsiStr directory = ParentOf(path);
  if (!DirectoryEntry(directory).GetTail().View().starts_with(kPrivatePrefix)) return false;
  struct stat info {};
  return ::lstat(directory.GetText(), &info) == 0 && S_ISDIR(info.st_mode) && (info.st_mode & 0077) == 0 &&
         info.st_uid == ::geteuid();
}

// The process's mask can only be read by changing it, which other threads would notice; a file tells it too.
int ModeOfNewFile(const AnsiStr& probe) noexcept {
  const int handle = OpenHandle(probe, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
  if (handle < 0) return -1;
  struct stat info {};
  const bool known = ::fstat(handle, &info) == 0;
  const int reason = errno;
  CloseHandle(handle);
  ::unlink(probe.GetText());
  errno = reason;
  return known ? static_cast<int>(info.st_mode & 0777) : -1;
}

void TempFile::Take(const File& file) noexcept {
  Cleanup();
  path_ = file.GetPath();
}

// Runs after failures whose reason is still to be read.
void TempFile::Cleanup() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  ::unlink(path_.GetText());
  GiveUp();
}

void TempFile::GiveUp() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  // A directory of somebody else is left alone, and one that is not empty is not removed.
  if (IsInPrivateDirectory(path_)) ::rmdir(ParentOf(path_).GetText());
  path_.Clear();
}

}  // namespace OruGuiBase

// Names of files, and what can be done with a file that is not open. Every operation of the client names its
// input and output files with these classes; File::Move is in file_move.cpp.

#include "foundation/file.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/errno_saver.h"
#include "foundation/errorstate.h"
#include "foundation/format.h"
#include "foundation/posix_file.h"
#include "foundation/private_file.h"
#include "foundation/text_checks.h"

namespace OruGuiBase {

namespace {

AnsiStr Join(const AnsiStr& directory, const AnsiStr& name) {
  if (directory.IsEmpty()) return name;
  AnsiStr path = directory;
  if (!path.View().ends_with('/')) path += '/';
  return path += name;
}

// Characters that have a special meaning in a file system or a shell, here or where the file may be copied
// to.
bool IsUnsafe(char character) {
  constexpr std::string_view kReserved = "/\\:*?\"<>|";
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F || kReserved.find(character) != std::string_view::npos;
}

}  // namespace

AnsiStr DirectoryEntry::GetTail() const noexcept {
  std::string_view path = path_.View();
  while (path.ends_with('/')) path.remove_suffix(1);
  const std::size_t slash = path.rfind('/');
  return AnsiStr(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

Directory::Directory([[maybe_unused]] DirectoryType type) noexcept : DirectoryEntry(TemporaryDirectory()) {}

std::uint32_t Directory::GetLongestName() const noexcept {
  // 255 bytes is the limit of the common file systems. A name shortened to 16 still has some characters
  // before its
  // ".tmp". A smaller limit is taken for an error of the file system, as is -1.
  constexpr long kCommon = 255;
  constexpr long kLeast = 16;
  const long limit = ::pathconf(path_.GetText(), _PC_NAME_MAX);
  return static_cast<std::uint32_t>(limit > kLeast && limit < kCommon ? limit : kCommon);
}

File::File(const Directory& directory, const AnsiStr& name) noexcept
    : DirectoryEntry(Join(directory.GetPath(), name)) {}

File::File([[maybe_unused]] FileType type, const AnsiStr& name, bool isPrivate) noexcept {
  if (!isPrivate) {
    path_ = Join(TemporaryDirectory(), MakeName(name));
    return;
  }
  ClearLastError();
  path_ = MakePrivateFile(name);
  if (path_.IsEmpty()) {
    SetLastErrorFromErrno();
  } else {
    privacy_ = FilePrivacy::Directory;
  }
}

// Trailing dots and blanks are replaced and not cut, so that two names that differ only in them stay
// different in length.
AnsiStr File::MakeName(const AnsiStr& name) noexcept {
  AnsiStr safe;
  safe.Reserve(name.GetLength());
  for (std::string_view rest = name.View(); !rest.empty();) {
    const std::size_t length = GetCharacterLength(rest);
    const bool isUnsafe = length == 0 || IsUnsafe(rest.front()) || (safe.IsEmpty() && rest.front() == '.');
    safe.Append(isUnsafe ? "_" : rest.substr(0, length));
    rest.remove_prefix(isUnsafe ? 1 : length);
  }
  std::uint32_t end = safe.GetLength();
  while (end > 0 && (safe.GetText()[end - 1] == '.' || safe.GetText()[end - 1] == ' ')) --end;
  const std::uint32_t trailing = safe.GetLength() - end;
  safe.Trunc(end);
  for (std::uint32_t i = 0; i < trailing; ++i) safe += '_';
  return safe.IsEmpty() ? AnsiStr("_") : safe;
}

File File::GetNumbered(std::uint32_t number) const noexcept {
  const std::string_view path = path_.View();
  const std::string_view tail = path.substr(path.rfind('/') + 1);
  const std::size_t dot = tail.rfind('.');
  // A dot at the start makes a hidden file and no extension.
  const std::size_t ending = dot == std::string_view::npos || dot == 0 ? 0 : tail.size() - dot;
  const AnsiStr digits = FmtArgs(" %u", number);
  return File(AnsiStr(path.substr(0, path.size() - ending)) + digits +
              AnsiStr(path.substr(path.size() - ending)));
}

// A directory is refused here: its size says nothing, and whoever asks is about to read it.
std::int64_t File::GetSize() const noexcept {
  ClearLastError();
  struct stat info {};
  if (!IsUsablePath(path_) || ::stat(path_.GetText(), &info) != 0) {
    FailWithErrno();
    return -1;
  }
  if (S_ISDIR(info.st_mode)) {
    FailWith(EISDIR);
    return -1;
  }
  return info.st_size;
}

bool File::Create() const noexcept {
  ClearLastError();
  const int handle = OpenHandle(path_, O_WRONLY | O_CREAT | O_EXCL, kOrdinaryMode);
  if (handle < 0) return FailWithErrno();
  if (CloseHandle(handle)) return true;
  const ErrnoSaver saver;
  FailWithErrno();
  ::unlink(path_.GetText());
  return false;
}

bool File::Remove(bool mayBeMissing) const noexcept {
  ClearLastError();
  if (!IsUsablePath(path_)) return FailWithErrno();
  return ::unlink(path_.GetText()) == 0 || (mayBeMissing && errno == ENOENT) || FailWithErrno();
}

}  // namespace OruGuiBase

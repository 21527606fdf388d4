#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "foundation/delivery.h"
#include "foundation/error_state_saver.h"
#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/posix_file.h"
#include "foundation/unfinished_list.h"

namespace OruGuiBase {

namespace {

constexpr const char* kPrivatePrefix = "orugui";
constexpr std::string_view kTempEnding = ".tmp";
constexpr unsigned kOwnerOnly = 0600;

bool IsContinuationByte(char character) {
  return (static_cast<unsigned char>(character) & 0xC0) == 0x80;
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

namespace {

// Makes a directory for the owner alone and lists it. The empty string on failure, with errno.
AnsiStr MakePrivateDirectory(const AnsiStr& prefix) {
  AnsiStr directory = AbsolutePath(TemporaryDirectory()) + "/" + prefix + "-XXXXXX";
  directory.Reserve(directory.GetLength());
  // mkdtemp writes the name that it found into the string, which nobody shares.
  if (!IsUsablePath(directory) || ::mkdtemp(const_cast<char*>(directory.GetText())) == nullptr) return {};
  if (AddUnfinished(directory, UnfinishedType::Directory)) return directory;
  const int reason = errno;
  ::rmdir(directory.GetText());
  errno = reason;
  return {};
}

void DropDirectory(const AnsiStr& directory) {
  ::rmdir(directory.GetText());
  DropUnfinished(directory);
}

}  // namespace

AnsiStr MakePrivateFile(const AnsiStr& name) noexcept {
  const UnfinishedScope scope;
  const AnsiStr directory = scope.IsOpen() ? MakePrivateDirectory(kPrivatePrefix) : AnsiStr();
  if (directory.IsEmpty()) return {};
  const std::uint32_t limit = Directory(directory).GetLongestName();
  AnsiStr path = directory + "/" + ShortenName(File::MakeName(name), limit);
  const int handle = OpenHandle(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kOwnerOnly);
  if (handle >= 0) {
    CloseHandle(handle);
    return path;
  }
  const int reason = errno;
  DropDirectory(directory);
  errno = reason;
  return {};
}

// A file that cannot be listed is only not removed when the program ends in the middle.
void TempFile::Take(const File& file) noexcept {
  Cleanup();
  path_ = file.GetPath();
  privacy_ = file.GetPrivacy();
  if (!file.IsPrivate() && !path_.IsEmpty()) AddUnfinished(path_, UnfinishedType::File);
}

bool TempFile::Create(const File& file) noexcept {
  Cleanup();
  ClearLastError();
  const UnfinishedScope scope;
  if (!scope.IsOpen()) return FailWithErrno();
  const int handle = OpenHandle(file.GetPath(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kOwnerOnly);
  if (handle < 0) return FailWithErrno();
  Take(File(AbsolutePath(file.GetPath()), FilePrivacy::Staging));
  AddUnfinished(path_, UnfinishedType::File);
  if (CloseHandle(handle)) return true;
  FailWithErrno();
  Cleanup();
  return false;
}

bool TempFile::CreateFor(const File& target) noexcept {
  Cleanup();
  ClearLastError();
  DeliveryTarget judged;
  const DeliveryWay way = JudgeTarget(target, judged);
  if (way == DeliveryWay::Failed) return FailWithErrno();
  AnsiStr path;
  const int handle = way == DeliveryWay::Replace ? MakeStaging(target.GetPath(), path) : -1;
  if (handle >= 0) {
    CloseHandle(handle);
    Take(File(path, FilePrivacy::Staging));
  } else if (way == DeliveryWay::InPlace || (judged.exists && IsRefusalOfDirectory(errno))) {
    Take(File(FileType::Temporary, target.GetTail() + AnsiStr(kTempEnding), true));
  } else {
    return FailWithErrno();
  }
  return !path_.IsEmpty();
}

// Runs after failures whose reason is still to be read.
void TempFile::Cleanup() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  ::unlink(path_.GetText());
  GiveUp();
}

// A directory that is not empty is not removed.
void TempFile::GiveUp() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  if (privacy_ == FilePrivacy::Directory) {
    DropDirectory(ParentOf(path_));
  } else {
    DropUnfinished(path_);
  }
  path_.Clear();
  privacy_ = FilePrivacy::None;
}

bool TempDirectory::Create(const AnsiStr& prefix) noexcept {
  Cleanup();
  ClearLastError();
  const UnfinishedScope scope;
  if (scope.IsOpen()) path_ = MakePrivateDirectory(prefix);
  return !path_.IsEmpty() || FailWithErrno();
}

void TempDirectory::Cleanup() noexcept {
  if (path_.IsEmpty()) return;
  const ErrorStateSaver saver;
  RemoveWithFiles(path_);
  DropUnfinished(path_);
  path_.Clear();
}

}  // namespace OruGuiBase

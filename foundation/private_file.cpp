// Makes the private directories and files of File(FileType, name, true), TempFile and TempDirectory.
// Each private file has a directory of its own, so that it can keep the name that the caller wants: two
// operations may use one name at the same time, and nobody else can put a file or link in its way.

#include "foundation/private_file.h"

#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "foundation/errno_saver.h"
#include "foundation/file.h"
#include "foundation/posix_file.h"
#include "foundation/unfinished_list.h"

namespace OruGuiBase {

namespace {

constexpr const char* kPrivatePrefix = "orugui";

bool IsContinuationByte(char character) {
  return (static_cast<unsigned char>(character) & 0xC0) == 0x80;
}

// Cuts a name that is too long, between two UTF-8 characters, and keeps kTempEnding.
AnsiStr ShortenName(const AnsiStr& name, std::size_t limit) {
  const std::string_view whole = name.View();
  if (whole.size() <= limit) return name;
  const std::string_view ending = whole.ends_with(kTempEnding) ? kTempEnding : std::string_view();
  std::size_t length = limit - ending.size();
  while (length > 0 && IsContinuationByte(whole[length])) --length;
  AnsiStr shortened(whole.substr(0, length));
  return shortened.Append(ending);
}

}  // namespace

AnsiStr MakePrivateDirectory(const AnsiStr& prefix) noexcept {
  AnsiStr directory = AbsolutePath(TemporaryDirectory()) + "/" + prefix + "-XXXXXX";
  directory.Reserve(directory.GetLength());
  // mkdtemp writes the name that it found into the string, which Reserve made sure is not shared.
  if (!IsUsablePath(directory) || ::mkdtemp(const_cast<char*>(directory.GetText())) == nullptr) return {};
  if (AddUnfinished(directory, UnfinishedType::Directory)) return directory;
  const ErrnoSaver saver;
  ::rmdir(directory.GetText());
  return {};
}

void DropPrivateDirectory(const AnsiStr& directory) noexcept {
  ::rmdir(directory.GetText());
  DropUnfinished(directory);
}

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
  const ErrnoSaver saver;
  DropPrivateDirectory(directory);
  return {};
}

}  // namespace OruGuiBase

#include "tools/source.h"

#include <memory>
#include <sys/stat.h>

#include "foundation/filehandle.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::FileReader;
using OruGuiBase::FileWriter;

namespace {

bool CopyAll(FileReader& reader, FileWriter& writer) {
  constexpr std::uint32_t kSize = OruGuiBase::kStreamBuffer;
  const auto buffer = std::make_unique<char[]>(kSize);
  std::int64_t got = 0;
  while ((got = reader.Read(buffer.get(), kSize)) > 0) {
    if (!writer.Write(buffer.get(), static_cast<std::uint32_t>(got))) return false;
  }
  return got == 0 && reader.Close() && writer.Close();
}

}  // namespace

// A missing path or a directory is not a stream either: opening it as a file reports the reason.
bool Source::IsStream(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

bool Source::Open(const std::string& path) {
  const File source{AnsiStr(path)};
  file_ = source;
  if (!IsStream(path)) return true;
  FileReader reader;
  if (!reader.Open(source)) return false;
  copy_.Take(File(OruGuiBase::FileType::Temporary, source.GetTail(), /*isPrivate=*/true));
  file_ = copy_.GetFile();
  FileWriter writer;
  return !file_.IsEmpty() && writer.Open(file_) && CopyAll(reader, writer);
}

}  // namespace CryptCli

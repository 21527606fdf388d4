// Where the bytes of messages come from: files, and strings in memory. BerReader and the streams of content
// read through it. All failures of reading get their reason here.
#include "security/ber/source.h"

#include <cstring>

#include "security/failure.h"

namespace OruOssSec {

namespace {

constexpr const char* kUnread = "The file cannot be read";
constexpr const char* kChanged = "The file changed while it was read";

}  // namespace

// Reading BER needs the size in advance and jumps over the content, which no pipe can do. The message says
// what helps, as users pipe messages into commands.
bool FileSource::Open(const OruGuiBase::File& file, Access access) noexcept {
  if (!reader_.Open(file)) return false;
  if (access == Access::Anywhere && !reader_.IsRegular())
    return FailWith("The size of a pipe or device is unknown: copy it to a file first");
  const std::int64_t size = reader_.GetSize();
  if (size < 0) return FailWith("The size of the file is not available");
  size_ = static_cast<std::uint64_t>(size);
  return true;
}

bool FileSource::ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept {
  const std::int64_t got = reader_.ReadAt(static_cast<std::int64_t>(offset), buffer, size);
  if (got < 0) return FailWith(kUnread);
  return got == static_cast<std::int64_t>(size) || FailWith(kChanged);
}

bool FileSource::ReadNext(std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) noexcept {
  const std::int64_t count = reader_.Read(buffer, size);
  if (count < 0) return FailWith(kUnread);
  got = static_cast<std::uint32_t>(count);
  taken_ += got;
  // FileReader::Read returns fewer bytes than asked only at the end.
  ended_ = got < size;
  // Size 0 is that of a pipe or a file made by the system, which may have any number of bytes.
  if (size_ != 0 && (taken_ > size_ || (ended_ && taken_ != size_))) return FailWith(kChanged);
  // A file rewritten meanwhile with the same size would be protected as a mixture of both contents.
  return !ended_ || reader_.IsUnchanged() || FailWith(kChanged);
}

bool BlobSource::ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept {
  std::memcpy(buffer, bytes_.GetData() + offset, size);
  return true;
}

bool ViewSource::ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept {
  std::memcpy(buffer, data_ + offset, size);
  return true;
}

}  // namespace OruOssSec

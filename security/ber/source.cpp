#include "security/ber/source.h"

#include <cstring>

#include "security/failure.h"

namespace OruOssSec {

bool FileSource::Open(const OruGuiBase::File& file) noexcept {
  if (!reader_.Open(file)) return false;
  if (!reader_.IsRegular())
    return FailWith("The size of a pipe or device is unknown: copy it to a file first");
  const std::int64_t size = reader_.GetSize();
  if (size < 0) return FailWith("The size of the file cannot be had");
  size_ = static_cast<std::uint64_t>(size);
  return true;
}

bool FileSource::ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept {
  const std::int64_t got = reader_.ReadAt(static_cast<std::int64_t>(offset), buffer, size);
  if (got < 0) return FailWith("The file cannot be read");
  if (got != static_cast<std::int64_t>(size)) return FailWith("The file changed while it was read");
  return true;
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

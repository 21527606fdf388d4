#include "security/cms/input.h"

#include "security/failure.h"

namespace OruOssSec {

bool CmsInput::Open(const OruGuiBase::File& file) noexcept {
  if (!reader_.Open(file)) return false;
  const std::int64_t size = reader_.GetSize();
  if (size < 0) return FailWith("The size of the file cannot be had");
  size_ = static_cast<std::uint64_t>(size);
  return true;
}

bool CmsInput::Read(std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) noexcept {
  const std::int64_t count = reader_.Read(buffer, size);
  if (count < 0) return FailWith("The file cannot be read");
  got = static_cast<std::uint32_t>(count);
  taken_ += got;
  ended_ = got < size;
  if (size_ != 0 && (taken_ > size_ || (ended_ && taken_ != size_))) {
    return FailWith("The file changed while it was read");
  }
  // A source rewritten at the same size would be protected as a mixture of both contents.
  if (ended_ && !reader_.IsUnchanged()) return FailWith("The file changed while it was read");
  return true;
}

}  // namespace OruOssSec

#pragma once

#include <cstdint>

#include "foundation/file.h"
#include "foundation/filehandle.h"

namespace OruOssSec {

/// A file that is read once from its beginning to its end, and must not change on the way.
class CmsInput {
 public:
  bool Open(const OruGuiBase::File& file) noexcept;
  /// Size at opening; 0 also for what has none, such as a pipe.
  std::uint64_t GetSize() const noexcept { return size_; }
  /// Reads up to `size` bytes, fewer only at the end.
  bool Read(std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) noexcept;
  bool IsAtEnd() const noexcept { return ended_; }

 private:
  OruGuiBase::FileReader reader_;
  std::uint64_t size_ = 0;
  std::uint64_t taken_ = 0;
  bool ended_ = false;
};

}  // namespace OruOssSec

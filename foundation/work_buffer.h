#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "foundation/reference.h"

namespace OruGuiBase {

/// Wipes and frees a block of AllocParticle, whose size is `size`. Null is allowed.
inline void FreeWiped(std::size_t size, void* block) noexcept {
  if (block != nullptr) WipeMemory(block, size);
  FreeParticle(size, block);
}

/// Memory that content passes through on its way from file to file. Owns one block and wipes it when it
/// releases it, since the content may be plain text or a key. Pointers of GetData() are valid until the next
/// Alloc(), Release() or the end of the object.
class WorkBuffer {
 public:
  WorkBuffer() noexcept = default;
  WorkBuffer(const WorkBuffer&) = delete;
  WorkBuffer& operator=(const WorkBuffer&) = delete;
  ~WorkBuffer() { Release(); }

  /// Replaces the block by one of `size` bytes, whose content is not defined. False on allocation failure;
  /// the buffer is then empty. Neither errno nor the error state is set.
  bool Alloc(std::uint32_t size) noexcept {
    Release();
    bytes_ = static_cast<std::uint8_t*>(AllocParticle(size));
    if (bytes_ != nullptr) size_ = size;
    return bytes_ != nullptr;
  }
  /// Wipes and frees the block, if there is one.
  void Release() noexcept { FreeWiped(std::exchange(size_, 0), std::exchange(bytes_, nullptr)); }

  std::uint8_t* GetData() noexcept { return bytes_; }
  std::uint32_t GetSize() const noexcept { return size_; }
  bool IsEmpty() const noexcept { return bytes_ == nullptr; }

 private:
  std::uint8_t* bytes_ = nullptr;
  std::uint32_t size_ = 0;
};

}  // namespace OruGuiBase

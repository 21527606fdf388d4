#pragma once

#include <cstdint>
#include <utility>

#include "foundation/reference.h"

namespace OruOssSec {

/// Memory that content passes through on its way from file to file. It may have held plain content, so it is
/// wiped when it is released.
class WorkBuffer {
 public:
  WorkBuffer() noexcept = default;
  WorkBuffer(const WorkBuffer&) = delete;
  WorkBuffer& operator=(const WorkBuffer&) = delete;
  ~WorkBuffer() { Release(); }

  /// Takes memory again; what was held is released. False when there is none.
  bool Alloc(std::uint32_t size) noexcept {
    Release();
    bytes_ = static_cast<std::uint8_t*>(OruGuiBase::AllocParticle(size));
    if (bytes_ != nullptr) size_ = size;
    return bytes_ != nullptr;
  }
  std::uint8_t* Get0() noexcept { return bytes_; }
  std::uint32_t GetSize() const noexcept { return size_; }
  bool IsEmpty() const noexcept { return bytes_ == nullptr; }

 private:
  void Release() noexcept {
    if (bytes_ == nullptr) return;
    OruGuiBase::WipeMemory(bytes_, size_);
    OruGuiBase::FreeParticle(std::exchange(size_, 0), std::exchange(bytes_, nullptr));
  }

  std::uint8_t* bytes_ = nullptr;
  std::uint32_t size_ = 0;
};

}  // namespace OruOssSec

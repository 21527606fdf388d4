#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace OruOssSec {

/// Owns bytes that grow at their end. Failed allocation is a failure with its reason, never an exception. The
/// bytes are not wiped: they are structure, never content or keys.
class BerBuffer {
 public:
  BerBuffer() noexcept = default;
  BerBuffer(const BerBuffer&) = delete;
  BerBuffer& operator=(const BerBuffer&) = delete;
  BerBuffer(BerBuffer&& other) noexcept { Swap(other); }
  BerBuffer& operator=(BerBuffer&& other) noexcept {
    Swap(other);
    return *this;
  }
  ~BerBuffer();

  const std::uint8_t* GetData() const noexcept { return data_; }
  std::uint8_t* GetData() noexcept { return data_; }
  std::size_t GetSize() const noexcept { return size_; }
  bool IsEmpty() const noexcept { return size_ == 0; }

  /// Makes sure that `size` bytes in all fit without another allocation.
  bool Reserve(std::size_t size) noexcept;
  bool Append(const void* bytes, std::size_t size) noexcept;
  bool Append(const BerBuffer& other) noexcept { return Append(other.data_, other.size_); }
  /// Appends identifier and definite length octets, the length in its shortest form (X.690, 10.1).
  bool AppendHeader(std::uint8_t identifier, std::uint64_t length) noexcept;

 private:
  void Swap(BerBuffer& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

/// Octets of the longest header that PutBerHeader writes: an identifier, the number of length octets, and
/// eight of them.
inline constexpr std::uint32_t kMostHeader = 10;

/// Writes identifier and definite length octets in their shortest form to `target`, where kMostHeader octets
/// fit. Returns their number.
std::uint32_t PutBerHeader(std::uint8_t identifier, std::uint64_t length, std::uint8_t* target) noexcept;

}  // namespace OruOssSec

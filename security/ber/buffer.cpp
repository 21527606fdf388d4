// Bytes that grow, for the structure of messages: BerWalker copies elements into it, the writers of messages
// build headers in it. Not a std::vector, whose failed allocation is an exception.
#include "security/ber/buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "security/failure.h"

namespace OruOssSec {

namespace {

// Enough for the small parts of a message, such as its OID, in one allocation.
constexpr std::size_t kLeastCapacity = 256;

}  // namespace

BerBuffer::~BerBuffer() {
  std::free(data_);
}

bool BerBuffer::Reserve(std::size_t size) noexcept {
  if (size <= capacity_) return true;
  void* memory = std::realloc(data_, size);
  if (memory == nullptr) return FailWithoutMemory();
  data_ = static_cast<std::uint8_t*>(memory);
  capacity_ = size;
  return true;
}

bool BerBuffer::Append(const void* bytes, std::size_t size) noexcept {
  if (size == 0) return true;  // memcpy takes no null, which an empty buffer has
  const std::size_t grown = size_ + size;
  if (grown > capacity_ && !Reserve(std::max({grown, capacity_ * 2, kLeastCapacity}))) return false;
  std::memcpy(data_ + size_, bytes, size);
  size_ += size;
  return true;
}

bool BerBuffer::AppendHeader(std::uint8_t identifier, std::uint64_t length) noexcept {
  std::uint8_t header[kMostHeader];
  return Append(header, PutBerHeader(identifier, length, header));
}

// The short form (X.690, 8.1.3.4) up to 127, else the long form (8.1.3.5), most significant octet first.
std::uint32_t PutBerHeader(std::uint8_t identifier, std::uint64_t length, std::uint8_t* target) noexcept {
  target[0] = identifier;
  if (length < 0x80) {
    target[1] = static_cast<std::uint8_t>(length);
    return 2;
  }
  std::uint32_t octets = 1;
  while (octets < 8 && (length >> (8 * octets)) != 0) ++octets;
  target[1] = static_cast<std::uint8_t>(0x80 | octets);
  for (std::uint32_t i = 0; i < octets; ++i) {
    target[2 + i] = static_cast<std::uint8_t>(length >> (8 * (octets - 1 - i)));
  }
  return 2 + octets;
}

}  // namespace OruOssSec

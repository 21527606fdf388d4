#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/errorstate.h"
#include "security/ber/buffer.h"
#include "security/ber/source.h"
#include "tests/security/test_pki.h"

// Bytes for the tests of BER, and sources that record how they are read.
namespace SecurityTest {

/// The bytes of a hexadecimal string; blanks are ignored.
inline std::string Hex(std::string_view text) {
  std::string bytes;
  int high = -1;
  for (const char c : text) {
    if (c == ' ') continue;
    const int digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    if (high < 0) {
      high = digit;
    } else {
      bytes += static_cast<char>(high * 16 + digit);
      high = -1;
    }
  }
  return bytes;
}

/// An element of definite length in its shortest form.
inline std::string Tlv(int identifier, const std::string& contents) {
  std::uint8_t header[OruOssSec::kMostHeader];
  const std::uint32_t size =
      OruOssSec::PutBerHeader(static_cast<std::uint8_t>(identifier), contents.size(), header);
  return std::string(reinterpret_cast<const char*>(header), size) + contents;
}

/// An element of indefinite length.
inline std::string Open(int identifier, const std::string& contents) {
  return std::string({static_cast<char>(identifier), '\x80'}) + contents + std::string(2, '\0');
}

/// Bytes in memory that count their reads and fail from an offset on.
class WatchedSource final : public OruOssSec::IByteSource {
 public:
  explicit WatchedSource(std::string bytes) : bytes_(std::move(bytes)) {}
  std::uint64_t GetSize() const noexcept override { return bytes_.size(); }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override {
    ++reads;
    if (size > largest) largest = size;
    if (offset > bytes_.size() || size > bytes_.size() - offset) outside = true;
    if (outside || offset + size > failsFrom) {
      OruGuiBase::SetErrorMessage("The source failed");
      return false;
    }
    std::memcpy(buffer, bytes_.data() + offset, size);
    return true;
  }

  int reads = 0;
  std::uint32_t largest = 0;
  bool outside = false;  ///< Bytes beyond the end were asked for.
  std::uint64_t failsFrom = ~std::uint64_t{0};

 private:
  std::string bytes_;
};

}  // namespace SecurityTest

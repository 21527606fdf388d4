#pragma once

#include <cstdint>

#include "foundation/work_buffer.h"
#include "security/ber/source.h"

namespace OruOssSec {

/// Identifier octets (X.690, 8.1.2) of the low tag numbers, the only ones that our grammars name.
enum BerIdentifier : std::uint8_t {
  kEndOfContents = 0x00,
  kInteger = 0x02,
  kOctetString = 0x04,
  kObjectIdentifier = 0x06,
  kSequence = 0x30,
  kSet = 0x31,
  kConstructed = 0x20,  ///< the bit that is set in a constructed element
  kContext0Primitive = 0x80,
  kContext0 = 0xA0,
  kContext1 = 0xA1,
};

/// Identifier and length octets of one element.
struct BerHeader {
  std::uint8_t identifier = 0;  ///< The first identifier octet; 0x1F in its low bits for a high tag number.
  bool indefinite = false;
  std::uint32_t size = 0;    ///< Octets of the header itself.
  std::uint64_t length = 0;  ///< Octets of the contents; 0 when indefinite.

  bool IsConstructed() const noexcept { return (identifier & kConstructed) != 0; }
  bool IsEndOfContents() const noexcept { return identifier == kEndOfContents; }
};

/// A run of bytes inside a reader's window, valid until the reader is used again.
struct BerSpan {
  const std::uint8_t* data = nullptr;
  std::uint32_t size = 0;
};

/// A window that moves over a source, so that not every small element costs a read. It refers to the source
/// and owns the window, which is wiped: content passes through it.
///
/// Reads grow up to kStreamBuffer while the source is read onwards. After a jump far ahead they start small
/// again, as only a header is wanted there.
class BerReader {
 public:
  /// The longest header accepted: five octets of tag number and sixteen of length. X.690 allows a length any
  /// number of leading zeros.
  static constexpr std::uint32_t kMaxHeader = 1 + 5 + 1 + 16;

  explicit BerReader(IByteSource& source) noexcept : source_(source) {}
  BerReader(const BerReader&) = delete;
  BerReader& operator=(const BerReader&) = delete;
  ~BerReader() = default;

  std::uint64_t GetSize() const noexcept { return source_.GetSize(); }
  /// Gives the bytes of the window from `offset` on, at least `least` of them. Precondition: `least` is at
  /// most kMaxHeader, and `offset + least <= GetSize()`.
  bool Fetch(std::uint64_t offset, std::uint32_t least, BerSpan& span) noexcept;
  /// Reads the header at `offset`. An element that does not end at or before the offset `end` is refused.
  bool ReadHeader(std::uint64_t offset, std::uint64_t end, BerHeader& header) noexcept;

  /// Records that the bytes were read and break the grammar. Returns false.
  bool Refuse(const char* reason) noexcept;
  /// True after Refuse(), which ReadHeader calls too. It separates "this is no message", which may be plain
  /// content, from "this could not be read", which never is.
  bool IsRefused() const noexcept { return refused_; }

 private:
  bool Fill(std::uint64_t offset, std::uint32_t least) noexcept;
  std::uint32_t GetFillSize(std::uint64_t offset, std::uint32_t least) noexcept;

  IByteSource& source_;
  OruGuiBase::WorkBuffer window_;
  std::uint64_t start_ = 0;
  std::uint32_t filled_ = 0;
  std::uint32_t fill_ = 0;
  bool refused_ = false;
};

}  // namespace OruOssSec

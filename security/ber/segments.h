#pragma once

#include <cstdint>

#include "security/ber/reader.h"

namespace OruOssSec {

/// Where an octet string lies in a source, primitive or in segments. The number of segments has no bound, so
/// only the extent of the whole is kept.
struct BerOctets {
  std::uint64_t offset = 0;     ///< of its identifier octet
  std::uint64_t end = 0;        ///< of the element that contains it
  std::uint64_t length = 0;     ///< content octets in all
  std::uint8_t identifier = 0;  ///< in its primitive form
};

/// A run of content octets in the source.
struct BerExtent {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// Steps through the segments of an octet string (X.690, 8.7) in constant memory. Refers to the reader.
///
///   string   = primitive | constructed
///   constructed holds segments: OCTET STRING elements, primitive or constructed themselves, at most
///   kMaxNest levels deep; it ends by its length or by an end-of-contents
class BerSegments {
 public:
  /// Nesting has no use, so this is generous. The bound keeps the levels in an array and the memory constant.
  static constexpr std::uint32_t kMaxNest = 8;

  /// `identifier` is that of the primitive form; the string has to end at or before `end`.
  BerSegments(BerReader& reader, std::uint64_t offset, std::uint64_t end, std::uint8_t identifier) noexcept;

  /// Steps to the next segment that is not empty; one of size 0 means the end. False when the bytes are not
  /// an octet string.
  bool Next(BerExtent& extent) noexcept;
  /// Offset after the string, once Next() came to its end.
  std::uint64_t GetEnd() const noexcept { return position_; }

 private:
  /// A constructed string that was entered and not yet left.
  struct Level {
    std::uint64_t end;
    bool indefinite;
  };

  bool LeaveEnded() noexcept;
  bool Step(BerExtent& extent) noexcept;
  bool Enter(const BerHeader& header, std::uint64_t end) noexcept;

  BerReader& reader_;
  std::uint64_t position_;
  std::uint64_t end_;
  std::uint8_t identifier_;
  bool started_ = false;
  std::uint32_t depth_ = 0;
  Level levels_[kMaxNest] = {};
};

/// Streams the content octets of an octet string that BerWalker::SkipOctets measured. Refers to the source.
/// Every operation fails when the source cannot be read or no longer has the same structure.
class BerContent {
 public:
  BerContent(IByteSource& source, const BerOctets& octets) noexcept
      : source_(source),
        reader_(source),
        segments_(reader_, octets.offset, octets.end, octets.identifier),
        left_(octets.length) {}

  /// The next run, as large as the window allows; one of size 0 means the end.
  bool Next(BerSpan& span) noexcept;
  /// Puts up to `most` octets at `target`; `most` is not 0. `got` is 0 only at the end. Large segments are
  /// read straight into `target`.
  bool Read(std::uint8_t* target, std::uint32_t most, std::uint32_t& got) noexcept;

 private:
  bool FindExtent() noexcept;
  void Pass(std::uint32_t size) noexcept;

  IByteSource& source_;
  BerReader reader_;
  BerSegments segments_;
  BerExtent extent_;
  std::uint64_t left_;
};

}  // namespace OruOssSec

#pragma once

#include <cstdint>

#include "security/ber/buffer.h"
#include "security/ber/reader.h"
#include "security/ber/segments.h"
#include "security/cmslimits.h"

namespace OruOssSec {

/// Reads elements one after the other as a grammar names them: BER of any form (X.690, 8), lengths and
/// offsets of 64 bits.
///
/// The first failure records its reason and ends the walk: every later operation fails too, so a grammar can
/// be written down and its outcome asked for once. Elements that are taken are copied as they stand, at most
/// kMaxTaken octets in all.
class BerWalker {
 public:
  static constexpr std::uint32_t kMaxDepth = 16;
  static constexpr std::uint64_t kMaxTaken = CMSLimits::kSkeleton;
  /// Indefinite lengths inside each other in an element that is taken or skipped whole.
  static constexpr std::uint32_t kMaxInnerDepth = 32;

  explicit BerWalker(BerReader& reader) noexcept : reader_(reader), end_(reader.GetSize()) {}

  /// Whether an element with this identifier octet comes next in the container.
  bool Is(std::uint8_t identifier) noexcept;
  /// Whether the container holds nothing more.
  bool IsAtEnd() noexcept;

  /// Steps into a constructed element.
  bool Enter(std::uint8_t identifier) noexcept;
  /// Steps out of it again; it must hold nothing more.
  bool Leave() noexcept;
  /// Appends the next element, header and all.
  bool Take(std::uint8_t identifier, BerBuffer& target) noexcept;
  bool TakeAny(BerBuffer& target) noexcept;
  /// Appends the contents of a primitive element.
  bool TakeContents(std::uint8_t identifier, BerBuffer& target) noexcept;
  /// Passes the next element, however long.
  bool SkipAny() noexcept;
  /// Passes an octet string, primitive or in segments, and tells where it lies; `identifier` is that of its
  /// primitive form.
  bool SkipOctets(std::uint8_t identifier, BerOctets& octets) noexcept;
  /// The source must hold nothing more.
  bool Finish() noexcept;

  bool IsFailed() const noexcept { return failed_; }
  /// Whether the walk ended because more than kMaxTaken octets were to be taken.
  bool IsTooLarge() const noexcept { return tooLarge_; }
  /// Ends the walk because the bytes are not what they have to be (BerReader::Refuse). Does nothing to a walk
  /// that has ended: an earlier failure may be that of the source.
  bool Refuse(const char* reason) noexcept;

 private:
  struct Level {
    std::uint64_t end;
    bool indefinite;
  };

  std::uint64_t GetEnd() const noexcept { return depth_ > 0 ? levels_[depth_ - 1].end : end_; }
  bool IsIndefinite() const noexcept { return depth_ > 0 && levels_[depth_ - 1].indefinite; }
  bool FailTooLarge() noexcept;
  bool Check(bool passed) noexcept;
  bool Peek(BerHeader& header) noexcept;
  bool Expect(std::uint8_t identifier, BerHeader& header) noexcept;
  bool FindEnd(std::uint64_t most, std::uint64_t& end) noexcept;
  bool TakeRest(BerBuffer& target) noexcept;
  bool Copy(std::uint64_t size, BerBuffer& target) noexcept;

  BerReader& reader_;
  std::uint64_t position_ = 0;
  std::uint64_t end_;
  std::uint64_t taken_ = 0;
  bool failed_ = false;
  bool tooLarge_ = false;
  std::uint32_t depth_ = 0;
  Level levels_[kMaxDepth] = {};
};

}  // namespace OruOssSec

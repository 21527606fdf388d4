#pragma once

#include <cstdint>

#include "security/ber/buffer.h"
#include "security/ber/reader.h"
#include "security/ber/segments.h"
#include "security/cmslimits.h"

namespace OruOssSec {

/// Reads elements in the order in which a grammar names them: BER of any form (X.690, 8), lengths and offsets
/// of 64 bits. Refers to the reader.
///
/// The first failure records its reason and ends the walk: every later operation fails too, so a grammar can
/// be written down as a list of calls and its outcome asked for once. Elements that are taken are copied
/// unchanged, at most kMaxTaken octets in all.
class BerWalker {
 public:
  /// Levels of Enter. The deepest grammar of ours enters five.
  static constexpr std::uint32_t kMaxDepth = 16;
  static constexpr std::uint64_t kMaxTaken = CMSLimits::kSkeleton;
  /// Nested indefinite lengths in an element that is taken or skipped whole.
  static constexpr std::uint32_t kMaxInnerDepth = 32;

  explicit BerWalker(BerReader& reader) noexcept : reader_(reader), end_(reader.GetSize()) {}

  /// Whether an element with this identifier octet comes next in the container.
  bool Is(std::uint8_t identifier) noexcept;
  /// Whether no element is left in the container.
  bool IsAtEnd() noexcept;

  /// Steps into a constructed element.
  bool Enter(std::uint8_t identifier) noexcept;
  /// Steps out of it again; no element may be left in it.
  bool Leave() noexcept;
  /// Appends the next element, header and all.
  bool Take(std::uint8_t identifier, BerBuffer& target) noexcept;
  /// Appends the contents of a primitive element.
  bool TakeContents(std::uint8_t identifier, BerBuffer& target) noexcept;
  /// Passes the next element, however long.
  bool SkipAny() noexcept;
  /// Passes an octet string, primitive or in segments, and says where it lies. `identifier` is that of its
  /// primitive form.
  bool SkipOctets(std::uint8_t identifier, BerOctets& octets) noexcept;
  /// Fails unless the source ends here.
  bool Finish() noexcept;

  bool IsFailed() const noexcept { return failed_; }
  /// Whether the walk ended because more than kMaxTaken octets were to be taken.
  bool IsTooLarge() const noexcept { return tooLarge_; }
  /// Ends the walk because the bytes break the grammar (BerReader::Refuse). Does nothing after a failure: the
  /// earlier one may be that of the source, which refuses nothing.
  bool Refuse(const char* reason) noexcept;

 private:
  /// A container that was entered and not yet left; its end is known only if its length is definite.
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

// Steps through octet strings of any size and number of segments: BerWalker measures a message's content with
// BerSegments when the message is loaded, BerContent streams it when it is verified, decrypted or copied.
#include "security/ber/segments.h"

#include <algorithm>
#include <cstring>

#include "security/failure.h"

namespace OruOssSec {

namespace {

// From this size on octets are read straight into the target instead of being copied out of the window.
constexpr std::uint32_t kLargeRead = 16 * 1024;

}  // namespace

BerSegments::BerSegments(BerReader& reader, std::uint64_t offset, std::uint64_t end,
                         std::uint8_t identifier) noexcept
    : reader_(reader), position_(offset), end_(end), identifier_(identifier) {}

// Leaves the levels whose definite length is used up, which nothing in the bytes marks. True when the string
// itself has ended.
bool BerSegments::LeaveEnded() noexcept {
  while (depth_ > 0 && !levels_[depth_ - 1].indefinite && position_ == levels_[depth_ - 1].end) --depth_;
  return depth_ == 0 && started_;
}

// An indefinite level has no end of its own: it must not pass that of its container.
bool BerSegments::Enter(const BerHeader& header, std::uint64_t end) noexcept {
  if (depth_ == kMaxNest) return reader_.Refuse("The segments of the content are nested too deeply");
  levels_[depth_++] = {header.indefinite ? end : position_ + header.length, header.indefinite};
  return true;
}

// Consumes one header. `extent` is set only for a non-empty primitive segment.
bool BerSegments::Step(BerExtent& extent) noexcept {
  const std::uint64_t end = depth_ > 0 ? levels_[depth_ - 1].end : end_;
  const std::uint8_t wanted = depth_ > 0 ? static_cast<std::uint8_t>(kOctetString) : identifier_;
  BerHeader header;
  if (!reader_.ReadHeader(position_, end, header)) return false;
  position_ += header.size;
  if (header.IsEndOfContents() && depth_ > 0 && levels_[depth_ - 1].indefinite) {
    --depth_;
    return true;
  }
  if ((header.identifier & ~kConstructed) != wanted)
    return reader_.Refuse("The content is not an octet string");
  started_ = true;
  if (header.IsConstructed()) return Enter(header, end);
  extent = {position_, header.length};
  position_ += header.length;
  return true;
}

bool BerSegments::Next(BerExtent& extent) noexcept {
  extent = BerExtent();
  while (extent.size == 0 && !LeaveEnded()) {
    if (!Step(extent)) return false;
  }
  return true;
}

// Moves on to a segment with octets that are still to be read; an empty one means the end. The content was
// measured when the message was loaded, so another number of octets means that the file changed.
bool BerContent::FindExtent() noexcept {
  if (extent_.size == 0 && !segments_.Next(extent_)) return false;
  if (extent_.size > left_ || (extent_.size == 0 && left_ != 0)) {
    return FailWith("The file changed while it was read");
  }
  return true;
}

void BerContent::Pass(std::uint32_t size) noexcept {
  extent_.offset += size;
  extent_.size -= size;
  left_ -= size;
}

bool BerContent::Next(BerSpan& span) noexcept {
  span = BerSpan();
  if (!FindExtent()) return false;
  if (extent_.size == 0) return true;
  if (!reader_.Fetch(extent_.offset, 1, span)) return false;
  if (span.size > extent_.size) span.size = static_cast<std::uint32_t>(extent_.size);
  Pass(span.size);
  return true;
}

bool BerContent::Read(std::uint8_t* target, std::uint32_t most, std::uint32_t& got) noexcept {
  got = 0;
  if (!FindExtent()) return false;
  if (extent_.size == 0) return true;
  got = static_cast<std::uint32_t>(std::min<std::uint64_t>(most, extent_.size));
  if (got >= kLargeRead) {
    if (!source_.ReadAt(extent_.offset, target, got)) return false;
  } else {
    BerSpan span;
    if (!reader_.Fetch(extent_.offset, 1, span)) return false;
    got = std::min(got, span.size);
    std::memcpy(target, span.data, got);
  }
  Pass(got);
  return true;
}

}  // namespace OruOssSec

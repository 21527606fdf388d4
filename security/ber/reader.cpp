// Reads the header of one BER element (X.690, 8.1) at any offset of a source of any size. BerWalker and
// BerSegments build the grammar on top of it; nothing else reads a header. The bytes are hostile: every
// length is checked against what contains it before anything is allocated or skipped by it.
#include "security/ber/reader.h"

#include <algorithm>

#include "security/failure.h"

namespace OruOssSec {

namespace {

// One page: a header rarely needs more, and the file system reads no less.
constexpr std::uint32_t kFirstFill = 4096;
// A step ahead up to this far beyond the window still counts as reading onwards.
constexpr std::uint64_t kNear = std::uint64_t{32} * 1024;

// BerReader::kMaxHeader includes both; its comment gives the reason.
constexpr std::uint32_t kMaxTagOctets = 5;
constexpr std::uint32_t kMaxLengthOctets = 16;
// What a file offset can express: sums of an offset and a length cannot overflow 64 bits without sign.
constexpr std::uint64_t kMaxLength = 0x7FFFFFFFFFFFFFFFU;

constexpr const char* kCutHeader = "The message ends inside a header";

// Hands out the octets of a header one after the other. Views the span, which has to outlive it.
class Octets {
 public:
  explicit Octets(const BerSpan& span) noexcept : span_(span) {}
  bool Take(std::uint8_t& octet) noexcept {
    if (taken_ == span_.size) return FailWith(kCutHeader);
    octet = span_.data[taken_++];
    return true;
  }
  std::uint32_t GetTaken() const noexcept { return taken_; }

 private:
  BerSpan span_;
  std::uint32_t taken_ = 0;
};

// Passes a high tag number (X.690, 8.1.2.4): seven bits an octet up to one without its top bit. No grammar of
// ours has such a tag, so its value is of no use.
bool PassTagNumber(Octets& octets) noexcept {
  for (std::uint32_t i = 0; i < kMaxTagOctets; ++i) {
    std::uint8_t octet = 0;
    if (!octets.Take(octet)) return false;
    if ((octet & 0x80) == 0) return true;
  }
  return FailWith("A tag number of the message is too large");
}

// Reads the long form (X.690, 8.1.3.5) after its first octet.
bool TakeLongLength(Octets& octets, std::uint32_t count, std::uint64_t& length) noexcept {
  if (count > kMaxLengthOctets) return FailWith("A length of the message has too many octets");
  length = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint8_t octet = 0;
    if (!octets.Take(octet)) return false;
    if (length > (kMaxLength >> 8)) return FailWith("A length of the message is too large");
    length = (length << 8) | octet;
  }
  return true;
}

bool TakeLength(Octets& octets, BerHeader& header) noexcept {
  std::uint8_t first = 0;
  if (!octets.Take(first)) return false;
  if (first < 0x80) {
    header.length = first;
    return true;
  }
  if (first == 0x80) {
    // An indefinite length (X.690, 8.1.3.6), which only a constructed element can have.
    if (!header.IsConstructed()) return FailWith("A primitive element of the message has no length");
    header.indefinite = true;
    header.length = 0;
    return true;
  }
  return TakeLongLength(octets, first & 0x7FU, header.length);
}

bool ParseHeader(const BerSpan& span, BerHeader& header) noexcept {
  header = BerHeader();
  Octets octets(span);
  if (!octets.Take(header.identifier)) return false;
  if ((header.identifier & 0x1F) == 0x1F && !PassTagNumber(octets)) return false;
  if (!TakeLength(octets, header)) return false;
  header.size = octets.GetTaken();
  // Always 00 00 (X.690, 8.1.5), so that it can be passed by its two octets.
  if (header.IsEndOfContents() && header.size + header.length != 2) {
    return FailWith("An end-of-contents of the message is not empty");
  }
  return true;
}

}  // namespace

// How much to read at `offset`: twice as much as last time while reading onwards, little after a jump.
std::uint32_t BerReader::GetFillSize(std::uint64_t offset, std::uint32_t least) noexcept {
  const bool onwards = filled_ != 0 && offset >= start_ && offset <= start_ + filled_ + kNear;
  fill_ = onwards ? std::min(fill_ * 2, window_.GetSize()) : std::min(kFirstFill, window_.GetSize());
  std::uint32_t size = std::max(fill_, least);
  // Ends at a page, so that the next reads begin at one.
  const std::uint32_t beyond = static_cast<std::uint32_t>((offset + size) % kFirstFill);
  if (size > beyond && size - beyond >= least) size -= beyond;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, GetSize() - offset));
}

// The window is allocated with the first read and no larger than the source, as many sources are views of a
// few octets.
bool BerReader::Fill(std::uint64_t offset, std::uint32_t least) noexcept {
  if (window_.IsEmpty()) {
    const std::uint64_t most = std::max<std::uint64_t>(GetSize(), kMaxHeader);
    const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(most, OruGuiBase::kStreamBuffer));
    if (!window_.Alloc(size)) return FailWithoutMemory();
  }
  const std::uint32_t size = GetFillSize(offset, least);
  filled_ = 0;  // the window is invalid if the read fails
  if (!source_.ReadAt(offset, window_.GetData(), size)) return false;
  start_ = offset;
  filled_ = size;
  return true;
}

bool BerReader::Fetch(std::uint64_t offset, std::uint32_t least, BerSpan& span) noexcept {
  const bool held = offset >= start_ && offset + least <= start_ + filled_;
  if (!held && !Fill(offset, least)) return false;
  const std::uint32_t skipped = static_cast<std::uint32_t>(offset - start_);
  span = {window_.GetData() + skipped, filled_ - skipped};
  return true;
}

bool BerReader::ReadHeader(std::uint64_t offset, std::uint64_t end, BerHeader& header) noexcept {
  if (offset >= end) return Refuse(kCutHeader);
  const std::uint64_t available = end - offset;
  BerSpan span;
  if (!Fetch(offset, static_cast<std::uint32_t>(std::min<std::uint64_t>(available, kMaxHeader)), span))
    return false;
  if (span.size > available) span.size = static_cast<std::uint32_t>(available);
  if (!ParseHeader(span, header)) return Refuse(kCutHeader);
  if (header.length > available - header.size) {
    return Refuse("A length of the message passes the end of what holds it");
  }
  return true;
}

bool BerReader::Refuse(const char* reason) noexcept {
  refused_ = true;
  return FailWith(reason);
}

}  // namespace OruOssSec

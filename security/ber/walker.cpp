// Walks over the structure of a message. The grammars of messages (cms/skeleton.h), recipients
// (cms/parties.cpp) and signing times (cms/verifying.cpp) are written down with it.
#include "security/ber/walker.h"

#include <algorithm>

#include "security/failure.h"

namespace OruOssSec {

namespace {

constexpr const char* kUnexpected = "The message is not built as its content type demands";
constexpr const char* kTooLarge = "The message without its content is too large";

}  // namespace

bool BerWalker::Refuse(const char* reason) noexcept {
  if (failed_) return false;
  failed_ = true;
  return reader_.Refuse(reason);
}

// Something beyond our limit may be a valid message, so the bytes are not refused.
bool BerWalker::FailTooLarge() noexcept {
  failed_ = true;
  tooLarge_ = true;
  return FailWith(kTooLarge);
}

// Takes over a failure of the reader or of memory, which has recorded its reason.
bool BerWalker::Check(bool passed) noexcept {
  if (!passed) failed_ = true;
  return passed;
}

bool BerWalker::Peek(BerHeader& header) noexcept {
  if (failed_) return false;
  return Check(reader_.ReadHeader(position_, GetEnd(), header));
}

bool BerWalker::IsAtEnd() noexcept {
  if (failed_) return false;
  if (!IsIndefinite()) return position_ == GetEnd();
  BerHeader header;
  return Peek(header) && header.IsEndOfContents();
}

bool BerWalker::Is(std::uint8_t identifier) noexcept {
  if (failed_ || IsAtEnd()) return false;
  BerHeader header;
  return Peek(header) && header.identifier == identifier;
}

bool BerWalker::Expect(std::uint8_t identifier, BerHeader& header) noexcept {
  if (failed_) return false;
  if (IsAtEnd()) return Refuse(kUnexpected);
  if (!Peek(header)) return false;
  return header.identifier == identifier || Refuse(kUnexpected);
}

bool BerWalker::Enter(std::uint8_t identifier) noexcept {
  BerHeader header;
  if (!Expect(identifier, header)) return false;
  if (depth_ == kMaxDepth) return Refuse("The message is nested too deeply");
  const std::uint64_t end = GetEnd();
  position_ += header.size;
  // An indefinite level has no end of its own: it must not pass that of its container.
  levels_[depth_++] = {header.indefinite ? end : position_ + header.length, header.indefinite};
  return true;
}

bool BerWalker::Leave() noexcept {
  if (failed_) return false;
  if (!IsAtEnd()) return Refuse(kUnexpected);
  if (IsIndefinite()) position_ += 2;  // the end-of-contents that IsAtEnd saw
  --depth_;
  return true;
}

// Finds the end of the next element. Inside an indefinite length each header is read, and an element of
// definite length is jumped over. Gives up on an element of more than `most` octets, so that the work for a
// hostile one is bounded too.
bool BerWalker::FindEnd(std::uint64_t most, std::uint64_t& end) noexcept {
  std::uint32_t depth = 0;
  end = position_;
  do {
    BerHeader header;
    if (!Check(reader_.ReadHeader(end, GetEnd(), header))) return false;
    end += header.size + header.length;
    if (end - position_ > most) return FailTooLarge();
    if (header.indefinite && ++depth > kMaxInnerDepth) return Refuse("The message is nested too deeply");
    if (header.IsEndOfContents() && depth-- == 0) return Refuse(kUnexpected);
  } while (depth > 0);
  return true;
}

bool BerWalker::Copy(std::uint64_t size, BerBuffer& target) noexcept {
  if (size > kMaxTaken - taken_) return FailTooLarge();
  taken_ += size;
  while (size > 0) {
    BerSpan span;
    if (!Check(reader_.Fetch(position_, 1, span))) return false;
    const std::uint64_t chunk = std::min<std::uint64_t>(span.size, size);
    if (!Check(target.Append(span.data, static_cast<std::size_t>(chunk)))) return false;
    position_ += chunk;
    size -= chunk;
  }
  return true;
}

// A definite length says at once that the element is too large, an indefinite one only on the way.
bool BerWalker::Take(std::uint8_t identifier, BerBuffer& target) noexcept {
  BerHeader header;
  if (!Expect(identifier, header)) return false;
  if (!header.indefinite && header.size + header.length > kMaxTaken - taken_) return FailTooLarge();
  std::uint64_t end = 0;
  if (!FindEnd(kMaxTaken - taken_, end)) return false;
  return Copy(end - position_, target);
}

bool BerWalker::TakeContents(std::uint8_t identifier, BerBuffer& target) noexcept {
  BerHeader header;
  if (!Expect(identifier, header)) return false;
  if (header.IsConstructed()) return Refuse(kUnexpected);
  if (header.length > kMaxTaken) return Refuse(kTooLarge);
  position_ += header.size;
  return Copy(header.length, target);
}

bool BerWalker::SkipAny() noexcept {
  if (failed_) return false;
  if (IsAtEnd()) return Refuse(kUnexpected);
  std::uint64_t end = 0;
  if (!FindEnd(GetEnd() - position_, end)) return false;
  position_ = end;
  return true;
}

bool BerWalker::SkipOctets(std::uint8_t identifier, BerOctets& octets) noexcept {
  if (failed_) return false;
  if (IsAtEnd()) return Refuse(kUnexpected);
  octets = {position_, GetEnd(), 0, identifier};
  // One pass measures the string and checks its structure, so that later reads only stream it.
  BerSegments segments(reader_, position_, GetEnd(), identifier);
  BerExtent extent;
  do {
    if (!Check(segments.Next(extent))) return false;
    octets.length += extent.size;
  } while (extent.size > 0);
  position_ = segments.GetEnd();
  return true;
}

bool BerWalker::Finish() noexcept {
  if (failed_) return false;
  return position_ == end_ || Refuse("The message is followed by other bytes");
}

}  // namespace OruOssSec

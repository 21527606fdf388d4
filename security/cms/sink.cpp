// Where content goes: decrypting and copying deliver it to a FileSink or BlobSink, encrypting and signing
// write it into a message with CmsWriter.
#include "security/cms/sink.h"

#include <cstring>

#include "security/failure.h"

namespace OruOssSec {

namespace {

// Identifiers with an indefinite length, and the end-of-contents that closes each (X.690, 8.1.5).
constexpr std::uint8_t kSequenceStart[] = {kSequence, 0x80};
constexpr std::uint8_t kContextStart[] = {kContext0, 0x80};
constexpr std::uint8_t kOctetsStart[] = {kOctetString | kConstructed, 0x80};
constexpr std::uint8_t kEnd[] = {0x00, 0x00};

// A full segment and its header are one chunk; the header is 04 83 and three octets of length.
constexpr std::uint32_t kSegmentHeader = 5;
constexpr std::uint32_t kSegment = kWriteChunk - kSegmentHeader;

// Space that is reserved besides the content, for certificates and signers or recipients. Truncate gives the
// rest back.
constexpr std::uint64_t kAround = std::uint64_t{64} * 1024;

bool IsSigned(const CmsSkeleton& skeleton) noexcept {
  return skeleton.type == CMSMsg::Type::SignedData;
}

// The layouts that CmsWriter documents.
bool MakeHead(const CmsSkeleton& skeleton, BerBuffer& head) noexcept {
  return head.Append(kSequenceStart, 2) && head.AppendHeader(kObjectIdentifier, skeleton.oid.GetSize()) &&
         head.Append(skeleton.oid) && head.Append(kContextStart, 2) && head.Append(kSequenceStart, 2) &&
         head.Append(skeleton.before) && head.Append(kSequenceStart, 2) && head.Append(skeleton.inner) &&
         head.Append(kContextStart, 2) && (!IsSigned(skeleton) || head.Append(kOctetsStart, 2));
}

bool MakeTail(const CmsSkeleton& skeleton, BerBuffer& tail) noexcept {
  return (!IsSigned(skeleton) || tail.Append(kEnd, 2)) && tail.Append(kEnd, 2) && tail.Append(kEnd, 2) &&
         tail.Append(skeleton.after) && tail.Append(kEnd, 2) && tail.Append(kEnd, 2) && tail.Append(kEnd, 2);
}

}  // namespace

bool FileSink::Begin(std::uint64_t expected) noexcept {
  if (!buffer_.Alloc(kWriteChunk + kSlack)) return FailWithoutMemory();
  return writer_.OpenStaged(target_) && writer_.Preallocate(static_cast<std::int64_t>(expected));
}

// What a cipher put beyond the chunk moves to its beginning.
bool FileSink::Commit(std::uint32_t size) noexcept {
  filled_ += size;
  written_ += size;
  if (filled_ < kWriteChunk) return true;
  if (!writer_.Write(buffer_.GetData(), kWriteChunk)) return false;
  filled_ -= kWriteChunk;
  std::memmove(buffer_.GetData(), buffer_.GetData() + kWriteChunk, filled_);
  return true;
}

bool FileSink::Finish() noexcept {
  return (filled_ == 0 || writer_.Write(buffer_.GetData(), filled_)) && writer_.Truncate(written_) &&
         writer_.Close();
}

// One octet more than expected keeps GetMissing() from ever being 0.
bool BlobSink::Begin(std::uint64_t expected) noexcept {
  if (expected + 1 + kSlack > 0xFFFFFFFFU) return FailWith("The content is too large for memory");
  data_ = bytes_.Alloc(static_cast<std::uint32_t>(expected + 1 + kSlack));
  return data_ != nullptr || FailWithoutMemory();
}

bool BlobSink::Commit(std::uint32_t size) noexcept {
  filled_ += size;
  return true;
}

bool BlobSink::Finish() noexcept {
  bytes_.Trunc(filled_);
  target_ = bytes_;
  return true;
}

bool CmsWriter::Write(const void* data, std::uint32_t size) noexcept {
  written_ += size;
  return writer_.Write(data, size);
}

bool CmsWriter::Begin(std::uint64_t expected) noexcept {
  if (!buffer_.Alloc(kMostHeader + kSegment + kSlack)) return FailWithoutMemory();
  BerBuffer bytes;
  if (!MakeHead(frame_, bytes) || !writer_.Open(target_)) return false;
  // The first segment is shorter by the size of the head, so that the following ones begin at multiples of a
  // chunk. After a large head it would be too short to be worth a write of its own.
  const std::uint32_t lead = static_cast<std::uint32_t>(bytes.GetSize() % kWriteChunk);
  segment_ = lead < kSegment / 2 ? kSegment - lead : kSegment;
  const std::uint64_t headers = (expected / kSegment + 1) * kSegmentHeader;
  return writer_.Preallocate(static_cast<std::int64_t>(expected + headers + kAround)) && Write(bytes);
}

// The header has another size for a shorter segment, so it is put right before the octets, in the space that
// is kept for the longest header: one write for both.
bool CmsWriter::WriteSegment(std::uint32_t size) noexcept {
  std::uint8_t header[kMostHeader];
  const std::uint32_t headerSize = PutBerHeader(kOctetString, size, header);
  std::uint8_t* start = buffer_.GetData() + kMostHeader - headerSize;
  std::memcpy(start, header, headerSize);
  return Write(start, headerSize + size);
}

bool CmsWriter::Commit(std::uint32_t size) noexcept {
  filled_ += size;
  if (filled_ < segment_) return true;
  if (!WriteSegment(segment_)) return false;
  std::uint8_t* data = buffer_.GetData() + kMostHeader;
  filled_ -= segment_;
  std::memmove(data, data + segment_, filled_);
  segment_ = kSegment;
  return true;
}

bool CmsWriter::Finish() noexcept {
  BerBuffer bytes;
  return (filled_ == 0 || WriteSegment(filled_)) && MakeTail(frame_, bytes) && Write(bytes) &&
         writer_.Truncate(written_) && writer_.Close();
}

}  // namespace OruOssSec

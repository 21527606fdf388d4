#include "security/cms/content.h"

#include <cstring>

#include "security/cms/opening.h"
#include "security/failure.h"

namespace OruOssSec {

namespace {

bool CopyContent(const LoadedMessage& message, IContentSink& sink) noexcept {
  const BerOctets& octets = message.skeleton.content;
  BerContent content(*message.source, octets);
  if (!sink.Begin(octets.length)) return false;
  std::uint32_t got = 0;
  do {
    if (!content.Read(sink.GetRoom(), sink.GetMissing(), got) || !sink.Commit(got)) return false;
  } while (got > 0);
  return sink.Finish();
}

}  // namespace

bool FileSink::Begin(std::uint64_t most) noexcept {
  if (!buffer_.Alloc(kWriteChunk + kSlack)) return FailWithoutMemory();
  return writer_.OpenStaged(target_) && writer_.Preallocate(static_cast<std::int64_t>(most));
}

bool FileSink::Commit(std::uint32_t size) noexcept {
  constexpr std::uint32_t kChunk = kWriteChunk;
  filled_ += size;
  written_ += size;
  if (filled_ < kChunk) return true;
  if (!writer_.Write(buffer_.GetData(), kChunk)) return false;
  filled_ -= kChunk;
  std::memmove(buffer_.GetData(), buffer_.GetData() + kChunk, filled_);
  return true;
}

bool FileSink::Finish() noexcept {
  return (filled_ == 0 || writer_.Write(buffer_.GetData(), filled_)) && writer_.Truncate(written_) &&
         writer_.Close();
}

// One octet more than will come keeps the room from ever being none.
bool BlobSink::Begin(std::uint64_t most) noexcept {
  if (most + 1 + kSlack > 0xFFFFFFFFU) return FailWith("The content is too large for memory");
  data_ = bytes_.Alloc(static_cast<std::uint32_t>(most + 1 + kSlack));
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

bool DeliverContent(const LoadedMessage& message, IContentSink& sink) noexcept {
  const CMSMsg::Type type = message.skeleton.type;
  if (message.source == nullptr) return FailWith("No message was loaded");
  if (type != CMSMsg::Type::SignedData && type != CMSMsg::Type::EnvelopedData &&
      type != CMSMsg::Type::DigestedData && type != CMSMsg::Type::Data) {
    return FailWith("The content of a message of this type cannot be read");
  }
  if (!message.skeleton.hasContent) return FailWith("The message does not hold its content");
  return type == CMSMsg::Type::EnvelopedData ? DeliverDecrypted(message, sink) : CopyContent(message, sink);
}

}  // namespace OruOssSec

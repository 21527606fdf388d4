#include "security/cms_content.h"

#include <cstring>
#include <new>

#include "security/cms_opening.h"

namespace OruOssSec {

namespace {

// A piece of this size is worth a system call of its own.
constexpr std::uint32_t kLargePiece = 32 * 1024;

bool CopyContent(const LoadedMessage& message, IContentSink& sink) noexcept {
  const BerOctets& octets = message.skeleton.content;
  BerContent content(*message.source, octets);
  if (!sink.Begin(octets.length)) return false;
  BerSpan span;
  do {
    if (!content.Next(span) || !sink.Write(span.data, span.size)) return false;
  } while (span.size > 0);
  return sink.Finish();
}

}  // namespace

bool FileSink::Begin(std::uint64_t most) noexcept {
  gathered_.reset(new (std::nothrow) std::uint8_t[OruGuiBase::kStreamBuffer]);
  if (gathered_ == nullptr) return FailWith("Out of memory");
  return writer_.Open(target_) && (most == 0 || writer_.Preallocate(static_cast<std::int64_t>(most)));
}

bool FileSink::Flush() noexcept {
  const std::uint32_t size = filled_;
  filled_ = 0;
  return size == 0 || writer_.Write(gathered_.get(), size);
}

bool FileSink::Write(const std::uint8_t* data, std::uint32_t size) noexcept {
  written_ += size;
  if (size >= kLargePiece) return Flush() && writer_.Write(data, size);
  if (size > OruGuiBase::kStreamBuffer - filled_ && !Flush()) return false;
  if (size > 0) std::memcpy(gathered_.get() + filled_, data, size);
  filled_ += size;
  return true;
}

bool FileSink::Finish() noexcept {
  return Flush() && writer_.Truncate(written_) && writer_.Close();
}

bool BlobSink::Begin(std::uint64_t most) noexcept {
  if (most > 0xFFFFFFFFU) return FailWith("The content is too large for memory");
  if (most == 0) return true;
  data_ = bytes_.Alloc(static_cast<std::uint32_t>(most));
  return data_ != nullptr || FailWith("Out of memory");
}

bool BlobSink::Write(const std::uint8_t* data, std::uint32_t size) noexcept {
  if (size > bytes_.GetSize() - filled_) return FailWith("The content is larger than it was");
  if (size > 0) std::memcpy(data_ + filled_, data, size);
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
      type != CMSMsg::Type::DigestedData) {
    return FailWith("The content of a message of this type cannot be read");
  }
  if (!message.skeleton.hasContent) return FailWith("The message does not hold its content");
  return type == CMSMsg::Type::EnvelopedData ? DeliverDecrypted(message, sink) : CopyContent(message, sink);
}

}  // namespace OruOssSec

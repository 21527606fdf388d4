#include "security/cms_decrypting.h"

#include <memory>
#include <new>

namespace OruOssSec {

namespace {

// Decrypts piece by piece into one buffer and hands it on when the next piece might not fit.
class Decryptor {
 public:
  Decryptor(EVP_CIPHER_CTX* context, IContentSink& sink) noexcept : context_(context), sink_(sink) {}

  bool Begin() noexcept {
    buffer_.reset(new (std::nothrow) std::uint8_t[kCapacity]);
    return buffer_ != nullptr || FailWith("Out of memory");
  }

  bool Add(const BerSpan& span) noexcept {
    if (span.size + EVP_MAX_BLOCK_LENGTH > kCapacity - filled_ && !Flush()) return false;
    int made = 0;
    if (EVP_DecryptUpdate(context_, GetRoom(), &made, span.data, static_cast<int>(span.size)) != 1) {
      return FailWith(kCouldNotDecrypt);
    }
    filled_ += static_cast<std::uint32_t>(made);
    return true;
  }

  bool Finish() noexcept {
    if (EVP_MAX_BLOCK_LENGTH > kCapacity - filled_ && !Flush()) return false;
    int made = 0;
    if (EVP_DecryptFinal_ex(context_, GetRoom(), &made) != 1) return FailWith(kCouldNotDecrypt);
    filled_ += static_cast<std::uint32_t>(made);
    return Flush();
  }

 private:
  static constexpr std::uint32_t kCapacity = OruGuiBase::kStreamBuffer + 2 * EVP_MAX_BLOCK_LENGTH;

  std::uint8_t* GetRoom() noexcept { return buffer_.get() + filled_; }
  bool Flush() noexcept {
    const std::uint32_t size = filled_;
    filled_ = 0;
    return sink_.Write(buffer_.get(), size);
  }

  EVP_CIPHER_CTX* context_;
  IContentSink& sink_;
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::uint32_t filled_ = 0;
};

}  // namespace

bool DecryptContent(const LoadedMessage& message, EVP_CIPHER_CTX* context, IContentSink& sink) noexcept {
  const BerOctets& octets = message.skeleton.content;
  BerContent content(*message.source, octets);
  Decryptor decryptor(context, sink);
  if (!decryptor.Begin() || !sink.Begin(octets.length)) return false;
  BerSpan span;
  for (;;) {
    if (!content.Next(span)) return false;
    if (span.size == 0) break;
    if (!decryptor.Add(span)) return false;
  }
  return decryptor.Finish() && sink.Finish();
}

}  // namespace OruOssSec

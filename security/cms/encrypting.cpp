// Writes EnvelopedData (RFC 5652, 6) for CMSMsg. OpenSSL generates the content key and encrypts it for the
// recipients. The content does not go through OpenSSL's stream layer: its cipher writes straight into the
// segments of the message, which saves copies and keeps memory constant.
#include "security/cms/encrypting.h"

#include "foundation/work_buffer.h"
#include "security/ber/source.h"
#include "security/cms/sink.h"
#include "security/failure.h"
#include "security/x509/strength.h"

namespace OruOssSec {

namespace {

constexpr const char* kCouldNotEncrypt = "The content cannot be encrypted";

bool EncryptChunk(EVP_CIPHER_CTX* context, const std::uint8_t* plain, std::uint32_t size,
                  IContentSink& sink) noexcept {
  int made = 0;
  if (EVP_EncryptUpdate(context, sink.GetBuffer(), &made, plain, static_cast<int>(size)) != 1) {
    return FailWithOpenSSL(kCouldNotEncrypt);
  }
  return sink.Commit(static_cast<std::uint32_t>(made));
}

bool EncryptLast(EVP_CIPHER_CTX* context, IContentSink& sink) noexcept {
  int made = 0;
  if (EVP_EncryptFinal_ex(context, sink.GetBuffer(), &made) != 1) return FailWithOpenSSL(kCouldNotEncrypt);
  return sink.Commit(static_cast<std::uint32_t>(made));
}

// Whole blocks at a time, as many as fill the segment in progress: the cipher then keeps none back.
bool EncryptAll(EVP_CIPHER_CTX* context, FileSource& input, CmsWriter& sink) noexcept {
  OruGuiBase::WorkBuffer plain;
  if (!plain.Alloc(kWriteChunk)) return FailWithoutMemory();
  const auto block = static_cast<std::uint32_t>(EVP_CIPHER_CTX_get_block_size(context));
  std::uint32_t got = 0;
  do {
    const std::uint32_t wanted = (sink.GetMissing() + block - 1) / block * block;
    if (!input.ReadNext(plain.GetData(), wanted, got) || !EncryptChunk(context, plain.GetData(), got, sink))
      return false;
  } while (!input.IsAtEnd());
  return EncryptLast(context, sink);
}

}  // namespace

bool StartEnvelope(NewEnvelope& envelope) noexcept {
  // OpenSSL keeps the cipher without a reference of its own, so it must be a static one, not a fetched one.
  constexpr unsigned int kFlags = CMS_PARTIAL | CMS_STREAM | CMS_DETACHED | CMS_BINARY;
  envelope.cms.reset(CMS_encrypt(nullptr, nullptr, EVP_aes_256_cbc(), kFlags));
  return envelope.cms != nullptr || FailWithOpenSSL("The enveloped message cannot be made");
}

bool AddEnvelopeRecipient(NewEnvelope& envelope, const Certificate& certificate) noexcept {
  if (envelope.cms == nullptr) return FailWith("No enveloped message was created");
  if (envelope.saved) return FailWith("The message was saved already");
  const int count = sk_CMS_RecipientInfo_num(CMS_get0_RecipientInfos(envelope.cms.get()));
  if (count >= static_cast<int>(CMSLimits::kRecipients))
    return FailWith("The message has too many recipients");
  if (certificate.IsEmpty()) return FailWith("The recipient's certificate is empty");
  const EVP_PKEY* key = X509_get0_pubkey(certificate.Get0());
  if (key == nullptr) return FailWithOpenSSL("The recipient's key cannot be read");
  if (EVP_PKEY_is_a(key, "RSA") != 1) return FailWith("The recipient's key is not an RSA key");
  if (HasShortKey(certificate.Get0())) return FailWith("The recipient's RSA key has fewer than 2048 bits");
  if (CMS_add1_recipient_cert(envelope.cms.get(), certificate.Get0(), CMS_BINARY) == nullptr) {
    return FailWithOpenSSL("The recipient cannot be added");
  }
  envelope.hasRecipient = true;
  return true;
}

bool SaveEnvelope(NewEnvelope& envelope, const OruGuiBase::File& content,
                  const OruGuiBase::File& target) noexcept {
  if (envelope.cms == nullptr) return FailWith("No enveloped message was created");
  if (!envelope.hasRecipient) return FailWith("The message has no recipient");
  if (envelope.saved) return FailWith("The message was saved already");
  FileSource input;
  if (!input.Open(content, FileSource::Access::Onwards)) return false;
  envelope.saved = true;  // also when it fails from here on: part of the content may be encrypted already
  EVP_CIPHER_CTX* context = nullptr;
  const BioPtr chain = StartContentCipher(envelope.cms.get(), context);
  if (chain == nullptr) return FailWithOpenSSL(kCouldNotEncrypt);
  CmsSkeleton skeleton;
  if (!ReadSkeleton(envelope.cms.get(), skeleton)) return false;
  CmsWriter sink(target, skeleton);
  return sink.Begin(input.GetSize()) && EncryptAll(context, input, sink) && sink.Finish();
}

}  // namespace OruOssSec

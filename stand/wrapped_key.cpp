// Wrapped room keys as key servers make and open them: a signed JSON object around an enveloped private key.
// Clients never look inside, except for the signer's certificate when they validate a room's key.
#include "stand/wrapped_key.h"

#include <memory>
#include <openssl/cms.h>
#include <openssl/err.h>

#include "stand/memory_bio.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

using CmsPtr = std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)>;

// Frees the stack alone: the certificates belong to their Cert objects.
struct StackDeleter {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};
using StackPtr = std::unique_ptr<STACK_OF(X509), StackDeleter>;

CmsPtr Parse(const std::string& bytes) {
  return {d2i_CMS_bio(Source(bytes).get(), nullptr), CMS_ContentInfo_free};
}

// DER of the message; empty when there is none.
std::string Encode(const CmsPtr& message) {
  if (message == nullptr) return {};
  return Written([&](BIO* bio) { return i2d_CMS_bio(bio, message.get()); });
}

// CMS_BINARY here and below: without it OpenSSL would convert line ends in the content.
std::string Envelop(const std::string& plain, const Cert& wrapping, const std::vector<Cert>& readers) {
  const StackPtr recipients(sk_X509_new_null());
  sk_X509_push(recipients.get(), wrapping.Get0());
  for (const Cert& reader : readers) sk_X509_push(recipients.get(), reader.Get0());
  const CmsPtr message(CMS_encrypt(recipients.get(), Source(plain).get(), EVP_aes_256_cbc(), CMS_BINARY),
                       CMS_ContentInfo_free);
  return Encode(message);
}

std::string Disclose(const std::string& bytes, const Identity& wrapping) {
  const CmsPtr message = Parse(bytes);
  const BioPtr plain = Sink();
  const bool opened =
      message != nullptr && CMS_decrypt(message.get(), wrapping.key.Get0(), wrapping.certificate.Get0(),
                                        nullptr, plain.get(), CMS_BINARY) == 1;
  return opened ? Contents(plain.get()) : "";
}

std::string Sign(const std::string& content, const Identity& signer) {
  const CmsPtr message(
      CMS_sign(signer.certificate.Get0(), signer.key.Get0(), nullptr, Source(content).get(), CMS_BINARY),
      CMS_ContentInfo_free);
  return Encode(message);
}

// CMS_NOINTERN ignores the certificates in the message: only the given signer counts.
std::string VerifiedContent(const std::string& bytes, const Cert& signer) {
  const CmsPtr message = Parse(bytes);
  const StackPtr signers(sk_X509_new_null());
  sk_X509_push(signers.get(), signer.Get0());
  const BioPtr content = Sink();
  const bool good =
      message != nullptr && CMS_verify(message.get(), signers.get(), nullptr, nullptr, content.get(),
                                       CMS_BINARY | CMS_NOINTERN | CMS_NO_SIGNER_CERT_VERIFY) == 1;
  return good ? Contents(content.get()) : "";
}

// An envelope names its recipients by issuer and serial number alone. Their certificates are stored with it,
// because wrapping the key for them again needs the public keys.
std::vector<std::string> TextsOf(const std::vector<Cert>& certificates) {
  std::vector<std::string> texts;
  texts.reserve(certificates.size());
  for (const Cert& certificate : certificates) texts.push_back(certificate.ToBase64());
  return texts;
}

// Keys that were wrapped before this list existed have no "readers".
std::vector<Cert> ReadersIn(const KVMap& object) {
  std::vector<Cert> readers;
  for (const std::string& text : ReadTexts(object, "readers").value_or(std::vector<std::string>())) {
    readers.push_back(CertFromText(text));
  }
  return readers;
}

KeyPair KeyFromDER(const std::string& bytes) {
  const BioPtr source = Source(bytes);
  return KeyPair(d2i_PrivateKey_bio(source.get(), nullptr));
}

}  // namespace

std::string WrapRoomKey(const RoomKeyPair& roomKey, const Identity& signer, const Cert& wrapping,
                        const std::vector<Cert>& readers) {
  const std::string envelope = Envelop(roomKey.key.ToDER(), wrapping, readers);
  if (envelope.empty()) {
    ERR_clear_error();
    return {};
  }
  KVMap object;
  object.Set("encodedInnerSigningCertificate", TextVal(signer.certificate.ToBase64()));
  object.Set("encodedX509Certificate", TextVal(roomKey.certificate.ToBase64()));
  object.Set("encodedPrivateKey", TextVal(ToBase64(envelope)));
  object.Set("readers", TextsVal(TextsOf(readers)));
  return ToBase64(Sign(WriteObject(object), signer));
}

std::optional<RoomKeyPair> OpenRoomKey(const std::string& wrapped, const Cert& signer,
                                       const Identity& wrapping) {
  const auto bytes = FromBase64(wrapped);
  const auto object = ReadObject(bytes.has_value() ? VerifiedContent(*bytes, signer) : "");
  RoomKeyPair roomKey;
  if (object.has_value()) {
    roomKey.certificate = CertFromText(ReadText(*object, "encodedX509Certificate").value_or(""));
    const auto envelope = FromBase64(ReadText(*object, "encodedPrivateKey").value_or(""));
    roomKey.key = KeyFromDER(Disclose(envelope.value_or(""), wrapping));
    roomKey.readers = ReadersIn(*object);
  }
  ERR_clear_error();
  if (roomKey.certificate.IsEmpty() || roomKey.key.IsEmpty()) return std::nullopt;
  return roomKey;
}

// Tries it: which keys OpenSSL can use depends on its version and providers.
bool CanWrapFor(const Cert& certificate) {
  const bool can = !certificate.IsEmpty() && !Envelop("x", certificate, {}).empty();
  ERR_clear_error();
  return can;
}

}  // namespace CryptStand

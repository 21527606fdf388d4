// Delivers the content of messages for CMSMsg::GetContent. EnvelopedData (RFC 5652, 6) is decrypted, either
// with a recipient's private key or with a content key that a server decrypted.
//
// CBC has no integrity: whoever sees whether a padding was right can decrypt without the key. So everything
// after the key is set fails with one and the same reason.
#include "security/cms/decrypting.h"

#include <algorithm>
#include <memory>
#include <new>

#include "foundation/encoding.h"
#include "security/ber/walker.h"
#include "security/failure.h"

namespace OruOssSec {

namespace {

// The one reason of every failed decryption, whatever its cause: key, block, length or padding.
constexpr const char* kCouldNotDecrypt = "The content cannot be decrypted with this key";

// The profile that DeliverContent documents. Authenticated ciphers belong to another content type.
constexpr int kCiphers[] = {NID_aes_128_cbc, NID_aes_192_cbc, NID_aes_256_cbc, NID_des_ede3_cbc};

bool IsEnveloped(const LoadedMessage& message) noexcept {
  return message.skeleton.type == CMSMsg::Type::EnvelopedData ||
         FailWith("The message is not an enveloped one");
}

// Reads the contentEncryptionAlgorithm (RFC 5652, 6.1), which follows the OID of the content.
AlgorPtr ReadAlgorithm(const CmsSkeleton& skeleton) noexcept {
  ViewSource source(skeleton.inner.GetData(), skeleton.inner.GetSize());
  BerReader reader(source);
  BerWalker walker(reader);
  BerBuffer der;
  if (!walker.SkipAny() || !walker.Take(kSequence, der)) return nullptr;
  const unsigned char* position = der.GetData();
  AlgorPtr algorithm(d2i_X509_ALGOR(nullptr, &position, static_cast<long>(der.GetSize())));
  if (algorithm == nullptr) FailWithOpenSSL("The content encryption algorithm cannot be read");
  return algorithm;
}

// Null, with a reason, for a cipher outside the profile.
CipherPtr FetchCipher(const X509_ALGOR* algorithm) noexcept {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  const int wanted = OBJ_obj2nid(object);
  for (const int nid : kCiphers) {
    if (nid != wanted) continue;
    CipherPtr cipher(EVP_CIPHER_fetch(nullptr, OBJ_nid2sn(nid), nullptr));
    if (cipher == nullptr) FailWithOpenSSL("The content encryption algorithm is not available");
    return cipher;
  }
  FailWith("The content encryption algorithm is not supported");
  return nullptr;
}

// In CBC mode the parameter is the initialization vector (RFC 3565, 4.1), one block long.
bool SetParameters(EVP_CIPHER_CTX* context, const X509_ALGOR* algorithm) noexcept {
  const void* value = nullptr;
  int type = V_ASN1_UNDEF;
  X509_ALGOR_get0(nullptr, &type, &value, algorithm);
  const auto* iv = static_cast<const ASN1_OCTET_STRING*>(value);
  if (type != V_ASN1_OCTET_STRING || ASN1_STRING_length(iv) != EVP_CIPHER_CTX_get_iv_length(context)) {
    return FailWith("The parameters of the content encryption are invalid");
  }
  return EVP_DecryptInit_ex2(context, nullptr, nullptr, ASN1_STRING_get0_data(iv), nullptr) == 1 ||
         FailWithOpenSSL("The parameters of the content encryption are invalid");
}

// Builds a context with the cipher and its parameters, still without a key.
CipherCtxPtr MakeContext(const CmsSkeleton& skeleton) noexcept {
  const AlgorPtr algorithm = ReadAlgorithm(skeleton);
  if (algorithm == nullptr) return nullptr;
  const CipherPtr cipher = FetchCipher(algorithm.get());
  if (cipher == nullptr) return nullptr;
  CipherCtxPtr context(EVP_CIPHER_CTX_new());
  if (context == nullptr ||
      EVP_DecryptInit_ex2(context.get(), cipher.get(), nullptr, nullptr, nullptr) != 1) {
    FailWithOpenSSL("The content encryption algorithm is not available");
    return nullptr;
  }
  if (!SetParameters(context.get(), algorithm.get())) return nullptr;
  return context;
}

bool HasRecipient(const LoadedMessage& message, X509* certificate) noexcept {
  STACK_OF(CMS_RecipientInfo)* recipients = CMS_get0_RecipientInfos(message.cms.get());
  for (int i = 0; i < sk_CMS_RecipientInfo_num(recipients); ++i) {
    CMS_RecipientInfo* recipient = sk_CMS_RecipientInfo_value(recipients, i);
    if (CMS_RecipientInfo_type(recipient) == CMS_RECIPINFO_TRANS &&
        CMS_RecipientInfo_ktri_cert_cmp(recipient, certificate) == 0) {
      return true;
    }
  }
  return FailWith("The message is not addressed to the certificate");
}

// Decrypts a run straight into the sink's buffer, at most as much at a time as is missing there.
bool DecryptRun(EVP_CIPHER_CTX* context, BerSpan run, IContentSink& sink) noexcept {
  while (run.size > 0) {
    const std::uint32_t size = std::min(run.size, sink.GetMissing());
    int made = 0;
    if (EVP_DecryptUpdate(context, sink.GetBuffer(), &made, run.data, static_cast<int>(size)) != 1) {
      return FailWith(kCouldNotDecrypt);
    }
    if (!sink.Commit(static_cast<std::uint32_t>(made))) return false;
    run = {run.data + size, run.size - size};
  }
  return true;
}

bool DecryptLast(EVP_CIPHER_CTX* context, IContentSink& sink) noexcept {
  int made = 0;
  if (EVP_DecryptFinal_ex(context, sink.GetBuffer(), &made) != 1) return FailWith(kCouldNotDecrypt);
  return sink.Commit(static_cast<std::uint32_t>(made)) && sink.Finish();
}

bool DecryptContent(const LoadedMessage& message, EVP_CIPHER_CTX* context, IContentSink& sink) noexcept {
  const BerOctets& octets = message.skeleton.content;
  BerContent content(*message.source, octets);
  if (!sink.Begin(octets.length)) return false;
  BerSpan run;
  do {
    if (!content.Next(run) || !DecryptRun(context, run, sink)) return false;
  } while (run.size > 0);
  return DecryptLast(context, sink);
}

// OpenSSL replaces a key block that cannot be decrypted by a random key, against attacks on the padding of
// RSA. So the result of CMS_decrypt_set1_pkey is ignored: the failure comes with the content, like any other.
bool DecryptWithPrivateKey(const LoadedMessage& message, IContentSink& sink) noexcept {
  if (EVP_PKEY_is_a(message.recipientKey.Get0(), "RSA") != 1) return FailWith(kCouldNotDecrypt);
  CMS_decrypt_set1_pkey(message.cms.get(), message.recipientKey.Get0(), message.recipient.Get0());
  EVP_CIPHER_CTX* context = nullptr;
  const BioPtr chain = StartContentCipher(message.cms.get(), context);
  if (chain == nullptr) return FailWith(kCouldNotDecrypt);
  return DecryptContent(message, context, sink);
}

bool DeliverDecrypted(const LoadedMessage& message, IContentSink& sink) noexcept {
  if (message.contentKey == nullptr) {
    if (message.recipientKey.IsEmpty()) return FailWith("No key to open the message with was set");
    return DecryptWithPrivateKey(message, sink);
  }
  const CipherCtxPtr context = MakeContext(message.skeleton);
  if (context == nullptr) return false;
  if (EVP_DecryptInit_ex2(context.get(), nullptr, message.contentKey->bytes, nullptr, nullptr) != 1) {
    return FailWith(kCouldNotDecrypt);
  }
  return DecryptContent(message, context.get(), sink);
}

// Signed, digested and plain content is only copied out of its segments.
bool CopyContent(const LoadedMessage& message, IContentSink& sink) noexcept {
  const BerOctets& octets = message.skeleton.content;
  BerContent content(*message.source, octets);
  if (!sink.Begin(octets.length)) return false;
  std::uint32_t got = 0;
  do {
    if (!content.Read(sink.GetBuffer(), sink.GetMissing(), got) || !sink.Commit(got)) return false;
  } while (got > 0);
  return sink.Finish();
}

}  // namespace

bool TakeRecipientKey(LoadedMessage& message, const Certificate& certificate,
                      const PrivateKey& key) noexcept {
  if (!IsEnveloped(message)) return false;
  if (certificate.IsEmpty() || key.IsEmpty()) return FailWith("The key to open the message with is empty");
  // An unsupported cipher fails here already, with its own reason: it says nothing about a key.
  if (!HasRecipient(message, certificate.Get0()) || MakeContext(message.skeleton) == nullptr) return false;
  message.recipient = certificate;
  static_cast<Key&>(message.recipientKey) = key;
  message.contentKey.reset();
  return true;
}

bool TakeContentKey(LoadedMessage& message, const OruGuiBase::AnsiStr& text) noexcept {
  if (!IsEnveloped(message)) return false;
  const CipherCtxPtr context = MakeContext(message.skeleton);
  if (context == nullptr) return false;
  std::unique_ptr<ContentKey> key(new (std::nothrow) ContentKey);
  if (key == nullptr) return FailWithoutMemory();
  key->size = ContentKey::kMost;
  if (!OruGuiBase::B64Str2Binary(text, key->bytes, key->size, "\r\n")) return false;
  if (static_cast<int>(key->size) != EVP_CIPHER_CTX_get_key_length(context.get())) {
    return FailWith("The length of the content key does not fit the cipher");
  }
  message.recipientKey.Clear();
  message.recipient.Clear();
  message.contentKey = std::move(key);
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

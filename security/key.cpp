#include "security/key.h"

#include <string_view>

#include "security/failure.h"
#include "security/openssl_handles.h"
#include "security/x509/rsa_key.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::BlobConst;

using PKCS8Ptr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Deleter<PKCS8_PRIV_KEY_INFO_free>>;
using EncryptedPtr = std::unique_ptr<X509_SIG, Deleter<X509_SIG_free>>;

constexpr const char* kEncrypted = "The private key is encrypted";

bool IsUsedUp(const BlobConst& bytes, const unsigned char* position) {
  return position == bytes.data + bytes.size;
}

// RSA keys, the type that opens messages, are read in a way that leaves no copies behind.
KeyPtr DecodePKCS8(const BlobConst& bytes) {
  const unsigned char* position = bytes.data;
  const PKCS8Ptr info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &position, static_cast<long>(bytes.size)));
  if (info == nullptr || !IsUsedUp(bytes, position)) return nullptr;
  const ASN1_OBJECT* algorithm = nullptr;
  BlobConst inner;
  int size = 0;
  if (PKCS8_pkey_get0(&algorithm, &inner.data, &size, nullptr, info.get()) != 1) return nullptr;
  inner.size = static_cast<std::uint32_t>(size);
  if (OBJ_obj2nid(algorithm) == NID_rsaEncryption) return DecodeRSAPrivateKey(inner);
  return KeyPtr(EVP_PKCS82PKEY(info.get()));
}

KeyPtr DecodeECPrivateKey(const BlobConst& bytes) {
  const unsigned char* position = bytes.data;
  KeyPtr key(d2i_PrivateKey(EVP_PKEY_EC, nullptr, &position, static_cast<long>(bytes.size)));
  if (key == nullptr || !IsUsedUp(bytes, position)) return nullptr;
  return key;
}

bool IsEncryptedPKCS8(const BlobConst& bytes) {
  const unsigned char* position = bytes.data;
  const EncryptedPtr info(d2i_X509_SIG(nullptr, &position, static_cast<long>(bytes.size)));
  return info != nullptr && IsUsedUp(bytes, position);
}

// The forms are told apart by trying: the structures exclude one another.
KeyPtr DecodeUnlabelled(const BlobConst& bytes) {
  if (IsEncryptedPKCS8(bytes)) {
    FailWith(kEncrypted);
    return nullptr;
  }
  if (KeyPtr key = DecodePKCS8(bytes)) return key;
  if (KeyPtr key = DecodeRSAPrivateKey(bytes)) return key;
  return DecodeECPrivateKey(bytes);
}

KeyPtr DecodeLabelled(std::string_view label, const BlobConst& bytes) {
  if (label == "PRIVATE KEY") return DecodePKCS8(bytes);
  if (label == "RSA PRIVATE KEY") return DecodeRSAPrivateKey(bytes);
  if (label == "EC PRIVATE KEY") return DecodeECPrivateKey(bytes);
  FailWith(label == "ENCRYPTED PRIVATE KEY" ? kEncrypted : "The PEM text is not a private key");
  return nullptr;
}

}  // namespace

Key::Key(const Key& other) noexcept : key_(other.key_) {
  if (key_ != nullptr) EVP_PKEY_up_ref(key_);
}

Key& Key::operator=(const Key& other) noexcept {
  Key copy(other);
  std::swap(key_, copy.key_);
  return *this;
}

void Key::Clear() noexcept {
  Set0(nullptr);
}

void Key::Set0(evp_pkey_st* key) noexcept {
  EVP_PKEY_free(key_);
  key_ = key;
}

bool PrivateKey::Load(const AnsiStr& text, ASN1::Encoding encoding) noexcept {
  const OpenSSLScope scope;
  if (encoding != ASN1::Encoding::Text) return FailWith("Unknown encoding of a private key");
  TextObject object;
  if (!ReadSingleObject(text.View(), object)) return false;
  const BlobConst bytes = object.bytes.View();
  KeyPtr key = object.label.empty() ? DecodeUnlabelled(bytes) : DecodeLabelled(object.label, bytes);
  if (key == nullptr) return FailWith("The text is not a private key");
  Set0(key.release());
  return true;
}

}  // namespace OruOssSec

// Loads private keys: PKCS #8 (RFC 5208), RSAPrivateKey (RFC 8017) and ECPrivateKey (RFC 5915), as PEM or
// base64. The key opens messages, so no copy of its numbers may stay in freed memory: RSA keys, the only ones
// that open a message, are decoded here instead of by OpenSSL.
#include "security/key.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <openssl/core_names.h>
#include <openssl/params.h>
#include <string_view>

#include "foundation/blob.h"
#include "security/failure.h"
#include "security/openssl_handles.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Blob;
using OruGuiBase::BlobConst;

constexpr const char* kEncrypted = "The private key is encrypted";

// RSAPrivateKey ::= SEQUENCE { version INTEGER 0, then one INTEGER for each of these in this order }. The
// version 0 means two primes (RFC 8017, A.1.2).
constexpr const char* kNumbers[] = {
    OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
    OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
    OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
    OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1,
};
constexpr std::size_t kCount = std::size(kNumbers);
// 16384 bits. OpenSSL has the same bound for public keys; an operation with a larger private key would take
// hours.
constexpr std::uint32_t kLargestNumber = 2048;

// Takes the contents of an element with a universal tag from the front of `rest`.
bool TakeElement(int tag, BlobConst& rest, BlobConst& contents) {
  const unsigned char* position = rest.data;
  long size = 0;
  int foundTag = 0;
  int foundClass = 0;
  const int form = ASN1_get_object(&position, &size, &foundTag, &foundClass, static_cast<long>(rest.size));
  const bool isDefinite = (form & 0x81) == 0;
  if (!isDefinite || foundClass != V_ASN1_UNIVERSAL || foundTag != tag) return false;
  contents = {position, static_cast<std::uint32_t>(size)};
  rest.size -= static_cast<std::uint32_t>(position + size - rest.data);
  rest.data = position + size;
  return true;
}

// Takes an integer that is not negative, without its leading zeros; 0 keeps one.
bool TakeNumber(BlobConst& rest, BlobConst& number) {
  if (!TakeElement(V_ASN1_INTEGER, rest, number) || number.size == 0 || number.data[0] >= 0x80) return false;
  while (number.size > 1 && number.data[0] == 0) {
    ++number.data;
    --number.size;
  }
  return number.size <= kLargestNumber;
}

// Nothing may follow the sequence or its numbers: another reader might interpret such bytes.
bool TakeNumbers(const BlobConst& bytes, BlobConst (&numbers)[kCount]) {
  BlobConst rest = bytes;
  BlobConst sequence;
  BlobConst version;
  if (!TakeElement(V_ASN1_SEQUENCE, rest, sequence) || rest.size != 0) return false;
  if (!TakeNumber(sequence, version) || version.size != 1 || version.data[0] != 0) return false;
  return std::all_of(std::begin(numbers), std::end(numbers),
                     [&](BlobConst& number) { return TakeNumber(sequence, number); }) &&
         sequence.size == 0;
}

// OSSL_PARAM takes numbers in the byte order of the machine.
void CopyNative(const BlobConst& number, std::uint8_t* target) {
  if constexpr (std::endian::native == std::endian::little) {
    std::reverse_copy(number.data, number.data + number.size, target);
  } else {
    std::copy_n(number.data, number.size, target);
  }
}

KeyPtr MakeKey(OSSL_PARAM* parameters) {
  const KeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  if (context == nullptr || EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_KEYPAIR, parameters) != 1) {
    return nullptr;
  }
  return KeyPtr(key);
}

// The key of an RSAPrivateKey structure with two primes (RFC 8017, A.1.2) in DER; null when it is not one.
//
// OpenSSL's own decoders free copies of what they read without wiping them; this one leaves nothing behind.
KeyPtr DecodeRSAPrivateKey(const BlobConst& bytes) {
  BlobConst numbers[kCount];
  if (!TakeNumbers(bytes, numbers)) return nullptr;
  Blob native;
  std::uint8_t* target = native.Alloc(bytes.size);
  if (target == nullptr) return nullptr;
  OSSL_PARAM parameters[kCount + 1];
  for (std::size_t i = 0; i < kCount; ++i) {
    CopyNative(numbers[i], target);
    parameters[i] = OSSL_PARAM_construct_BN(kNumbers[i], target, numbers[i].size);
    target += numbers[i].size;
  }
  parameters[kCount] = OSSL_PARAM_construct_end();
  return MakeKey(parameters);
}

// Whether the decoder consumed all bytes: data after the key would be ignored otherwise.
bool IsUsedUp(const BlobConst& bytes, const unsigned char* position) {
  return position == bytes.data + bytes.size;
}

// Goes on with DecodeRSAPrivateKey for RSA keys, which leaves no copies behind; OpenSSL decodes all others.
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
  const EncryptedKeyPtr info(d2i_X509_SIG(nullptr, &position, static_cast<long>(bytes.size)));
  return info != nullptr && IsUsedUp(bytes, position);
}

// Without a label the forms are tried one after the other. No structure is valid as two of them.
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

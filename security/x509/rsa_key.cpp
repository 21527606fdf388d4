#include "security/x509/rsa_key.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <openssl/core_names.h>
#include <openssl/params.h>

namespace OruOssSec {
namespace {

using OruGuiBase::Blob;
using OruGuiBase::BlobConst;

// RSAPrivateKey ::= SEQUENCE { version INTEGER 0, then one INTEGER for each of these in this order }
constexpr const char* kNumbers[] = {
    OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
    OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
    OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
    OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1,
};
constexpr std::size_t kCount = std::size(kNumbers);
// 16384 bits. OpenSSL bounds public operations alike; one on a larger private key would take hours.
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

// Takes an integer that is not negative, without leading zeros but for the number 0 itself.
bool TakeNumber(BlobConst& rest, BlobConst& number) {
  if (!TakeElement(V_ASN1_INTEGER, rest, number) || number.size == 0 || number.data[0] >= 0x80) return false;
  while (number.size > 1 && number.data[0] == 0) {
    ++number.data;
    --number.size;
  }
  return number.size <= kLargestNumber;
}

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

// OpenSSL takes numbers as arguments in the byte order of the machine.
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

}  // namespace

KeyPtr DecodeRSAPrivateKey(const BlobConst& bytes) noexcept {
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

}  // namespace OruOssSec

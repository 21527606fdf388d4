// Judges the strength of keys and signatures. Chains, encrypting, signing and verifying all ask here:
// OpenSSL's security level differs between distributions and can be configured away.
#include "security/x509/strength.h"

#include <cstring>
#include <openssl/core_names.h>

namespace OruOssSec {
namespace {

// The cost of a key type that is not measured here. The largest curves, of 571 bits, cost half of it.
constexpr std::uint32_t kUnknownCost = 100;

std::uint32_t GetExponentBits(const EVP_PKEY* key) noexcept {
  BIGNUM* value = nullptr;
  if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &value) != 1) return 0;
  const BignumPtr exponent(value);
  return static_cast<std::uint32_t>(BN_num_bits(exponent.get()));
}

std::uint32_t GetRSACheckCost(const EVP_PKEY* key) noexcept {
  // 17 bits are those of 65537. Rounded up, so that no check is free.
  constexpr std::uint64_t kUnit = std::uint64_t{4096} * 4096 * 17;
  const auto bits = static_cast<std::uint64_t>(EVP_PKEY_get_bits(key));
  const std::uint32_t exponentBits = GetExponentBits(key);
  if (exponentBits == 0) return kUnknownCost;
  return static_cast<std::uint32_t>((bits * bits * exponentBits + kUnit - 1) / kUnit);
}

}  // namespace

bool HasShortKey(const X509* certificate) noexcept {
  constexpr int kLeastBits = 2048;
  const EVP_PKEY* key = X509_get0_pubkey(certificate);
  return key != nullptr && (EVP_PKEY_is_a(key, "RSA") == 1 || EVP_PKEY_is_a(key, "RSA-PSS") == 1) &&
         EVP_PKEY_get_bits(key) < kLeastBits;
}

// An algorithm that OpenSSL does not know is not weak by this rule: no signature of it verifies anyway.
const char* FindWeakSignature(X509* certificate) noexcept {
  // Bits of security, as of SHA-224, the least of the SHA-2 family.
  constexpr int kLeastSecurity = 112;
  int digest = NID_undef;
  int security = 0;
  if (X509_get_signature_info(certificate, &digest, nullptr, &security, nullptr) != 1) return nullptr;
  if (digest == NID_md5) return "A certificate is signed with MD5";
  if (digest == NID_sha1) return "A certificate is signed with SHA-1";
  return security < kLeastSecurity ? "A certificate is signed with a weak digest" : nullptr;
}

std::uint32_t GetCheckCost(const EVP_PKEY* key) noexcept {
  constexpr struct {
    const char* group;
    std::uint32_t cost;
  } kGroups[] = {{"prime256v1", 1}, {"secp384r1", 10}, {"secp521r1", 10}};
  if (key == nullptr) return 1;  // the check fails at once
  if (EVP_PKEY_is_a(key, "RSA") == 1 || EVP_PKEY_is_a(key, "RSA-PSS") == 1) return GetRSACheckCost(key);
  char name[80] = {};
  if (EVP_PKEY_get_group_name(key, name, sizeof(name), nullptr) != 1) return kUnknownCost;
  for (const auto& group : kGroups) {
    if (std::strcmp(group.group, name) == 0) return group.cost;
  }
  return kUnknownCost;
}

}  // namespace OruOssSec

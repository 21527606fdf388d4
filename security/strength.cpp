#include "security/strength.h"

namespace OruOssSec {

bool HasShortKey(const X509* certificate) noexcept {
  constexpr int kLeastBits = 2048;
  const EVP_PKEY* key = X509_get0_pubkey(certificate);
  return key != nullptr && (EVP_PKEY_is_a(key, "RSA") == 1 || EVP_PKEY_is_a(key, "RSA-PSS") == 1) &&
         EVP_PKEY_get_bits(key) < kLeastBits;
}

// Algorithms that OpenSSL does not know make no chain in any case.
const char* FindWeakSignature(X509* certificate) noexcept {
  constexpr int kLeastSecurity = 112;
  int digest = NID_undef;
  int security = 0;
  if (X509_get_signature_info(certificate, &digest, nullptr, &security, nullptr) != 1) return nullptr;
  if (digest == NID_md5) return "A certificate is signed with MD5";
  if (digest == NID_sha1) return "A certificate is signed with SHA-1";
  return security < kLeastSecurity ? "A certificate is signed with a weak digest" : nullptr;
}

}  // namespace OruOssSec

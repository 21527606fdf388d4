// Issues X.509 certificates (RFC 5280) with OpenSSL. Called by Authority for the certificates of the test
// environment, and by the tests, which also need certificates that no real authority would issue.
#include "stand/cert_maker.h"

#include <cstdio>
#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include "stand/memory_bio.h"

namespace CryptStand {
namespace {

using CertPtr = std::unique_ptr<X509, decltype(&X509_free)>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)>;
using NumberPtr = std::unique_ptr<BIGNUM, decltype(&BN_free)>;
using DigestPtr = std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)>;

// Without ESC_MSB, so that names in other alphabets stay readable.
std::string NameText(const X509_NAME* name) {
  constexpr unsigned long kFlags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  return Written([&](BIO* bio) { return X509_NAME_print_ex(bio, name, 0, kFlags) >= 0 ? 1 : 0; });
}

std::time_t ParseTime(const char* text) {
  std::tm fields = {};
  std::sscanf(text, "%d-%d-%dT%d:%d:%d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday, &fields.tm_hour,
              &fields.tm_min, &fields.tm_sec);
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  return timegm(&fields);
}

bool SetSerial(X509* certificate, const std::string& serial) {
  BIGNUM* raw = nullptr;
  if (serial.empty()) {
    unsigned char random[16];
    if (RAND_bytes(random, sizeof random) != 1) return false;
    // Positive (RFC 5280, 4.1.2.2), and always 16 octets.
    random[0] = static_cast<unsigned char>((random[0] & 0x7F) | 0x40);
    raw = BN_bin2bn(random, sizeof random, nullptr);
  } else if (BN_hex2bn(&raw, serial.c_str()) != static_cast<int>(serial.size())) {
    BN_free(raw);
    return false;
  }
  const NumberPtr number(raw, BN_free);
  return number != nullptr && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool SetSubject(X509* certificate, const CertSpec& spec) {
  X509_NAME* name = X509_get_subject_name(certificate);
  for (const auto& [type, value] : spec.subject) {
    // OpenSSL refuses strings over the 64 characters that X.520 allows, except in their final ASN.1 type.
    // Room names may be longer, and clients must cope with such certificates.
    const int form = value.size() > 64 ? V_ASN1_UTF8STRING : MBSTRING_UTF8;
    if (X509_NAME_add_entry_by_txt(name, type.c_str(), form, Bytes(value), static_cast<int>(value.size()), -1,
                                   0) != 1) {
      return false;
    }
  }
  return true;
}

bool SetValidity(X509* certificate, const Validity& validity) {
  return ASN1_TIME_set(X509_getm_notBefore(certificate), validity.notBefore) != nullptr &&
         ASN1_TIME_set(X509_getm_notAfter(certificate), validity.notAfter) != nullptr;
}

bool AddExtension(X509* certificate, X509* issuer, const std::string& name, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509V3_set_ctx_nodb(&context);
  const ExtensionPtr extension(X509V3_EXT_nconf(nullptr, &context, name.c_str(), value.c_str()),
                               X509_EXTENSION_free);
  return extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1;
}

std::string BasicConstraints(const CertSpec& spec) {
  std::string value = spec.isCA ? "critical,CA:TRUE" : "critical,CA:FALSE";
  if (spec.pathLength >= 0) value += ",pathlen:" + std::to_string(spec.pathLength);
  return value;
}

// The subject key identifier comes first: a self-signed certificate copies its authority key identifier from
// it.
bool AddExtensions(X509* certificate, X509* issuer, const CertSpec& spec) {
  std::vector<std::pair<std::string, std::string>> all;
  if (spec.hasBasicConstraints) all.emplace_back("basicConstraints", BasicConstraints(spec));
  if (spec.hasSubjectKeyId) all.emplace_back("subjectKeyIdentifier", "hash");
  const bool issuerHasKeyId = X509_get_ext_by_NID(issuer, NID_subject_key_identifier, -1) >= 0;
  const bool isOwnIssuer = issuer == certificate;
  if (spec.hasAuthorityKeyId && (isOwnIssuer ? spec.hasSubjectKeyId : issuerHasKeyId)) {
    all.emplace_back("authorityKeyIdentifier", "keyid:always");
  }
  if (!spec.keyUsage.empty()) all.emplace_back("keyUsage", spec.keyUsage);
  if (!spec.extendedKeyUsage.empty()) all.emplace_back("extendedKeyUsage", spec.extendedKeyUsage);
  all.insert(all.end(), spec.extensions.begin(), spec.extensions.end());
  for (const auto& [name, value] : all) {
    if (!AddExtension(certificate, issuer, name, value)) return false;
  }
  return true;
}

bool SignWith(X509* certificate, EVP_PKEY* key, const char* digest) {
  const DigestPtr method(EVP_MD_fetch(nullptr, digest, nullptr), EVP_MD_free);
  return method != nullptr && X509_sign(certificate, key, method.get()) > 0;
}

// Encodes and decodes the certificate, so that OpenSSL holds the same cached state as for one that was read.
X509* Reread(X509* certificate) {
  unsigned char* encoded = nullptr;
  const int size = i2d_X509(certificate, &encoded);
  if (size <= 0) return nullptr;
  const unsigned char* position = encoded;
  X509* again = d2i_X509(nullptr, &position, size);
  OPENSSL_free(encoded);
  return again;
}

// `issuer` null makes a self-signed certificate.
Cert MakeCert(const CertSpec& spec, const KeyPair& key, const Identity* issuer) {
  const CertPtr certificate(X509_new(), X509_free);
  X509* const made = certificate.get();
  X509* const signer = issuer != nullptr ? issuer->certificate.Get0() : made;
  EVP_PKEY* const signingKey = issuer != nullptr ? issuer->key.Get0() : key.Get0();
  if (made == nullptr || signer == nullptr || signingKey == nullptr || key.IsEmpty()) return {};
  if (X509_set_version(made, X509_VERSION_3) != 1 || !SetSerial(made, spec.serial) ||
      !SetSubject(made, spec) || X509_set_issuer_name(made, X509_get_subject_name(signer)) != 1 ||
      !SetValidity(made, spec.validity) || X509_set_pubkey(made, key.Get0()) != 1 ||
      !AddExtensions(made, signer, spec) || !SignWith(made, signingKey, spec.digest)) {
    return {};
  }
  return Cert(Reread(made));
}

}  // namespace

Validity Validity::FromNow(std::int64_t begin, std::int64_t end) {
  const std::time_t now = std::time(nullptr);
  return {now + begin, now + end};
}

Validity Validity::Between(const char* begin, const char* end) {
  return {ParseTime(begin), ParseTime(end)};
}

CertSpec CertSpec::EndEntity(std::string commonName) {
  CertSpec spec;
  spec.subject = {{"CN", std::move(commonName)}};
  spec.keyUsage = "critical,digitalSignature,keyEncipherment";
  return spec;
}

CertSpec CertSpec::Authority(std::string commonName, int pathLength) {
  CertSpec spec;
  spec.subject = {{"CN", std::move(commonName)}};
  spec.isCA = true;
  spec.pathLength = pathLength;
  spec.keyUsage = "critical,keyCertSign,cRLSign";
  return spec;
}

Cert Cert::Issue(const CertSpec& spec, const KeyPair& key, const Identity& issuer) {
  return MakeCert(spec, key, &issuer);
}

Cert Cert::SelfSign(const CertSpec& spec, const KeyPair& key) {
  return MakeCert(spec, key, nullptr);
}

Cert Cert::FromPEM(std::string_view pem) {
  return Cert(PEM_read_bio_X509(Source(pem).get(), nullptr, nullptr, nullptr));
}

std::string Cert::ToPEM() const {
  return IsEmpty() ? "" : Written([&](BIO* bio) { return PEM_write_bio_X509(bio, Get0()); });
}

std::string Cert::ToDER() const {
  return IsEmpty() ? "" : Written([&](BIO* bio) { return i2d_X509_bio(bio, Get0()); });
}

std::string Cert::ToBase64() const {
  return CryptStand::ToBase64(ToDER());
}

std::string Cert::GetSubject() const {
  return IsEmpty() ? "" : NameText(X509_get_subject_name(Get0()));
}

std::string Cert::GetIssuer() const {
  return IsEmpty() ? "" : NameText(X509_get_issuer_name(Get0()));
}

std::string Cert::GetSerial() const {
  if (IsEmpty()) return {};
  const ASN1_INTEGER* serial = X509_get0_serialNumber(Get0());
  const auto* data = reinterpret_cast<const char*>(ASN1_STRING_get0_data(serial));
  return ToHex({data, static_cast<std::size_t>(ASN1_STRING_length(serial))}, /*upperCase=*/true);
}

std::string Cert::GetDigest(const char* digest) const {
  const DigestPtr method(EVP_MD_fetch(nullptr, digest, nullptr), EVP_MD_free);
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (IsEmpty() || method == nullptr || X509_digest(Get0(), method.get(), value, &size) != 1) return {};
  return ToHex({reinterpret_cast<const char*>(value), size});
}

KeyPair Cert::GetPublicKey() const {
  return IsEmpty() ? KeyPair() : KeyPair(X509_get_pubkey(Get0()));
}

Identity Identity::MakeRoot(const CertSpec& spec, KeyPair key) {
  Cert certificate = Cert::SelfSign(spec, key);
  return {std::move(certificate), std::move(key)};
}

Identity Identity::MakeIssued(const CertSpec& spec, const Identity& issuer, KeyPair key) {
  Cert certificate = Cert::Issue(spec, key, issuer);
  return {std::move(certificate), std::move(key)};
}

}  // namespace CryptStand

#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A small maker of keys and certificates for the development stand and for tests. Never for production: its
// keys lie in plain memory and its serial numbers are whatever it is told.
//
// A value that could not be made is empty; a text or a signature that could not be made is the empty string.
namespace CryptStand {

/// Names of digests, as OpenSSL fetches them.
inline constexpr const char* kSHA1 = "SHA1";
inline constexpr const char* kSHA256 = "SHA256";
inline constexpr const char* kSHA384 = "SHA384";
inline constexpr const char* kSHA512 = "SHA512";

/// A key pair. Copies share it.
class KeyPair {
 public:
  KeyPair() = default;
  /// Takes the reference over.
  explicit KeyPair(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {}

  static KeyPair MakeRSA(unsigned bits = 2048);
  /// A key on a named curve, which cannot transport keys.
  static KeyPair MakeEC(const char* curve = "P-256");
  /// From unencrypted PEM, PKCS #8 or traditional.
  static KeyPair FromPEM(std::string_view pem);

  bool IsEmpty() const { return key_ == nullptr; }
  EVP_PKEY* Get0() const { return key_.get(); }

  /// The private key: PKCS #8 in PEM, DER and one line of base64; the traditional PEM of its type; PKCS #8
  /// PEM under a password; traditional PEM under a password.
  std::string ToPEM() const;
  std::string ToDER() const;
  std::string ToBase64() const;
  std::string ToTraditionalPEM() const;
  std::string ToEncryptedPEM(const std::string& password) const;
  std::string ToEncryptedTraditionalPEM(const std::string& password) const;
  /// The public key alone, as SubjectPublicKeyInfo in PEM.
  std::string ToPublicPEM() const;

  /// Signs a message; with RSA this is PKCS #1 v1.5.
  std::string Sign(std::string_view message, const char* digest = kSHA512) const;
  /// Signs a hash that was computed elsewhere. Its length has to be that of the digest.
  std::string SignHash(std::string_view hash, const char* digest = kSHA512) const;
  bool Verify(std::string_view message, std::string_view signature, const char* digest = kSHA512) const;

  /// RSAES-PKCS1-v1_5 with the public and with the private key: how a content key travels.
  std::string Encrypt(std::string_view plain) const;
  std::string Decrypt(std::string_view cipher) const;

 private:
  std::shared_ptr<EVP_PKEY> key_;
};

/// When a certificate is valid, in Unix time since 1970.
struct Validity {
  std::time_t notBefore = 0;
  std::time_t notAfter = 0;

  /// Seconds relative to the present.
  static Validity FromNow(std::int64_t begin, std::int64_t end);
  /// From the one date to the other, each "YYYY-MM-DD" or "YYYY-MM-DDThh:mm:ss" in universal time.
  static Validity Between(const char* begin, const char* end);
};

/// What a certificate is to say.
struct CertSpec {
  /// The subject's parts in the order of the encoding, such as {"O", "Example"}, {"CN", "Room 1"}; UTF-8.
  std::vector<std::pair<std::string, std::string>> subject;
  /// Upper- or lower-case hexadecimal; empty takes 16 random bytes.
  std::string serial;
  Validity validity = Validity::FromNow(-3600, 365 * 86400L);
  /// Whether basic constraints are there at all, what they say, and the path length; -1 sets no limit.
  bool hasBasicConstraints = true;
  bool isCA = false;
  int pathLength = -1;
  bool hasSubjectKeyId = true;
  bool hasAuthorityKeyId = true;
  /// In OpenSSL's configuration syntax ("critical,keyCertSign,cRLSign"); empty leaves the extension out.
  std::string keyUsage;
  std::string extendedKeyUsage;
  /// Further extensions: OpenSSL's name or an OID, and the value in its configuration syntax.
  std::vector<std::pair<std::string, std::string>> extensions;
  const char* digest = kSHA256;

  /// A certificate of an end entity for signatures and key transport.
  static CertSpec EndEntity(std::string commonName);
  /// A certificate of an authority.
  static CertSpec Authority(std::string commonName, int pathLength = -1);
};

struct Identity;

/// A certificate. Copies share it.
class Cert {
 public:
  Cert() = default;
  /// Takes the reference over.
  explicit Cert(X509* certificate) : certificate_(certificate, X509_free) {}

  /// A certificate for `key` that `issuer` signs.
  static Cert Issue(const CertSpec& spec, const KeyPair& key, const Identity& issuer);
  static Cert SelfSign(const CertSpec& spec, const KeyPair& key);
  static Cert FromPEM(std::string_view pem);

  bool IsEmpty() const { return certificate_ == nullptr; }
  X509* Get0() const { return certificate_.get(); }

  std::string ToPEM() const;
  std::string ToDER() const;
  /// One line of base64 DER.
  std::string ToBase64() const;
  /// Subject and issuer in the form of RFC 2253, in UTF-8 that is not escaped.
  std::string GetSubject() const;
  std::string GetIssuer() const;
  /// Upper-case hexadecimal, two digits a byte, no sign byte.
  std::string GetSerial() const;
  /// Digest of the DER form in lower-case hexadecimal.
  std::string GetDigest(const char* digest = kSHA256) const;
  /// The public key; it can verify and encrypt.
  KeyPair GetPublicKey() const;

 private:
  std::shared_ptr<X509> certificate_;
};

/// A certificate with its key pair.
struct Identity {
  Cert certificate;
  KeyPair key;

  static Identity MakeRoot(const CertSpec& spec, KeyPair key = KeyPair::MakeRSA());
  static Identity MakeIssued(const CertSpec& spec, const Identity& issuer, KeyPair key = KeyPair::MakeRSA());
};

/// One line of base64.
std::string ToBase64(std::string_view bytes);
/// Hexadecimal, two digits a byte.
std::string ToHex(std::string_view bytes, bool upperCase = false);

}  // namespace CryptStand

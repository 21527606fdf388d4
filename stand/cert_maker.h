#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <openssl/x509.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "stand/key_pair.h"

// Certificates for the local test environment and for tests. Never for production: it accepts any serial
// number, validity and extension, so that tests can make certificates that must be refused.
//
// A certificate that could not be made or read is empty; so is a string that could not be computed.
namespace CryptStand {

/// When a certificate is valid, in Unix time (UTC).
struct Validity {
  std::time_t notBefore = 0;
  std::time_t notAfter = 0;

  /// Seconds relative to the present.
  static Validity FromNow(std::int64_t begin, std::int64_t end);
  /// From one date to another, each "YYYY-MM-DD" or "YYYY-MM-DDThh:mm:ss" in UTC. For tests.
  static Validity Between(const char* begin, const char* end);
};

/// The contents of a certificate to be issued.
struct CertSpec {
  /// The subject's attributes in the order of the encoding, such as {"O", "Example"}, {"CN", "Room 1"};
  /// UTF-8.
  std::vector<std::pair<std::string, std::string>> subject;
  /// Upper- or lower-case hexadecimal; empty takes 16 random bytes.
  std::string serial;
  Validity validity = Validity::FromNow(-3600, 365 * 86400L);
  /// Whether there are basic constraints, and their contents; a path length of -1 sets no limit.
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

  /// An end-entity certificate for signatures and key transport.
  static CertSpec EndEntity(std::string commonName);
  /// A certificate of a certification authority.
  static CertSpec Authority(std::string commonName, int pathLength = -1);
};

struct Identity;

/// A certificate. Copies share it.
class Cert {
 public:
  Cert() = default;
  /// Takes over the reference.
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
  /// Subject and issuer in the form of RFC 2253, with non-ASCII characters as plain UTF-8.
  std::string GetSubject() const;
  std::string GetIssuer() const;
  /// Upper-case hexadecimal, two digits for each byte, without a sign byte.
  std::string GetSerial() const;
  /// Digest of the DER form in lower-case hexadecimal.
  std::string GetDigest(const char* digest = kSHA256) const;
  /// The public key alone: it can verify and encrypt.
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

}  // namespace CryptStand

#pragma once

#include <memory>
#include <openssl/evp.h>
#include <string>
#include <string_view>

// Keys for the local test environment and for tests. Never for production: they stay in plain memory.
//
// A key that could not be made or read is empty; a result that could not be computed is the empty string.
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
  /// Takes over the reference.
  explicit KeyPair(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {}

  static KeyPair MakeRSA(unsigned bits = 2048);
  /// A key on a named curve, which cannot transport keys.
  static KeyPair MakeEC(const char* curve = "P-256");
  /// From unencrypted PEM, PKCS #8 or traditional.
  static KeyPair FromPEM(std::string_view pem);

  bool IsEmpty() const { return key_ == nullptr; }
  EVP_PKEY* Get0() const { return key_.get(); }

  /// The private key as PKCS #8 (RFC 5958): in PEM, in DER and in one line of base64.
  std::string ToPEM() const;
  std::string ToDER() const;
  std::string ToBase64() const;
  /// The same for tests and seeds of fuzzers: in the traditional PEM of its type, and in both PEM forms under
  /// a password.
  std::string ToTraditionalPEM() const;
  std::string ToEncryptedPEM(const std::string& password) const;
  std::string ToEncryptedTraditionalPEM(const std::string& password) const;
  /// The public key alone, as SubjectPublicKeyInfo in PEM. For tests and seeds of fuzzers.
  std::string ToPublicPEM() const;

  /// Signs a message; with RSA this is PKCS #1 v1.5.
  std::string Sign(std::string_view message, const char* digest = kSHA512) const;
  /// Signs a hash that the caller computed; its length must be that of the digest.
  std::string SignHash(std::string_view hash, const char* digest = kSHA512) const;
  /// For tests.
  bool Verify(std::string_view message, std::string_view signature, const char* digest = kSHA512) const;

  /// RSAES-PKCS1-v1_5 with the public and with the private key, as content keys are transported.
  std::string Encrypt(std::string_view plain) const;
  std::string Decrypt(std::string_view cipher) const;

 private:
  std::shared_ptr<EVP_PKEY> key_;
};

/// One line of base64.
std::string ToBase64(std::string_view bytes);
/// Hexadecimal, two digits a byte.
std::string ToHex(std::string_view bytes, bool upperCase = false);

}  // namespace CryptStand

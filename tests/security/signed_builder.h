#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"

// A SignedData put together by hand, so that a test can put any element into it.
namespace SecurityTest {

inline std::string EncodeName(const X509_NAME* name) {
  unsigned char* der = nullptr;
  const int size = i2d_X509_NAME(name, &der);
  const std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
  OPENSSL_free(der);
  return bytes;
}

inline std::string EncodeSerial(const Cert& certificate) {
  unsigned char* der = nullptr;
  const int size = i2d_ASN1_INTEGER(X509_get0_serialNumber(certificate.Get0()), &der);
  const std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
  OPENSSL_free(der);
  return bytes;
}

inline std::string Digest(const char* name, const std::string& bytes) {
  unsigned char value[EVP_MAX_MD_SIZE];
  std::size_t size = 0;
  EVP_Q_digest(nullptr, name, nullptr, bytes.data(), bytes.size(), value, &size);
  return std::string(reinterpret_cast<char*>(value), size);
}

inline const std::string kDataOid = Tlv(0x06, Hex("2A864886F70D010701"));
inline const std::string kContentTypeOid = Tlv(0x06, Hex("2A864886F70D010903"));
inline const std::string kMessageDigestOid = Tlv(0x06, Hex("2A864886F70D010904"));
inline const std::string kSigningTimeOid = Tlv(0x06, Hex("2A864886F70D010905"));
inline const std::string kSha512Oid = Tlv(0x06, Hex("608648016503040203"));
inline const std::string kSha256Oid = Tlv(0x06, Hex("608648016503040201"));

/// An attribute; `values` are encoded elements.
inline std::string Attribute(const std::string& oid, const std::string& values) {
  return Tlv(0x30, oid + Tlv(0x31, values));
}

/// A SignerInfo (RFC 5652, 5.3) whose every part a test can replace; its signature fits what was chosen.
struct BuiltSigner {
  Identity identity = Signer();
  const char* digest = "SHA512";
  std::string digestOid = kSha512Oid;
  /// Elements in any order; they are sorted as DER demands.
  std::vector<std::string> attributes;
  bool hasAttributes = true;

  /// The attributes that every signer of `content` has.
  static BuiltSigner For(const std::string& content, const char* digest = "SHA512",
                         const std::string& digestOid = kSha512Oid) {
    BuiltSigner signer;
    signer.digest = digest;
    signer.digestOid = digestOid;
    signer.attributes = {Attribute(kContentTypeOid, kDataOid),
                         Attribute(kMessageDigestOid, Tlv(0x04, Digest(digest, content)))};
    return signer;
  }
  BuiltSigner& Add(const std::string& attribute) {
    attributes.push_back(attribute);
    return *this;
  }

  std::string Encode() const {
    std::vector<std::string> sorted = attributes;
    std::sort(sorted.begin(), sorted.end(), [](const std::string& a, const std::string& b) {
      return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
      });
    });
    std::string all;
    for (const std::string& attribute : sorted) all += attribute;
    const Cert& certificate = identity.certificate;
    const std::string name =
        Tlv(0x30, EncodeName(X509_get_issuer_name(certificate.Get0())) + EncodeSerial(certificate));
    return Tlv(0x30, Hex("020101") + name + Tlv(0x30, digestOid) + (hasAttributes ? Tlv(0xA0, all) : "") +
                         Tlv(0x30, Hex("06092A864886F70D010101 0500")) +
                         Tlv(0x04, identity.key.Sign(Tlv(0x31, all), digest)));
  }
};

/// A SignedData of built signers: for messages that OpenSSL does not write.
struct BuiltMessage {
  std::string content;
  std::string typeOid = kDataOid;
  std::vector<BuiltSigner> signers;
  std::vector<Cert> certificates = {Signer().certificate};

  std::string Encode() const {
    std::string infos;
    std::string certs;
    for (const BuiltSigner& signer : signers) infos += signer.Encode();
    for (const Cert& certificate : certificates) certs += certificate.ToDER();
    const std::string fields = Hex("020101") + Tlv(0x31, Tlv(0x30, kSha512Oid)) +
                               Tlv(0x30, typeOid + Tlv(0xA0, Tlv(0x04, content))) + Tlv(0xA0, certs) +
                               Tlv(0x31, infos);
    return Tlv(0x30, Hex("06092A864886F70D010702") + Tlv(0xA0, Tlv(0x30, fields)));
  }
};

inline bool LoadBytes(CMSMsg& message, const std::string& bytes) {
  return message.Load(ToText(CryptStand::ToBase64(bytes)));
}

/// A message of one signer.
inline BuiltMessage MessageOf(const BuiltSigner& signer, const std::string& content = "content") {
  BuiltMessage message;
  message.content = content;
  message.signers = {signer};
  return message;
}

}  // namespace SecurityTest

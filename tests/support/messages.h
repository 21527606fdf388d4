#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "stand/cert_maker.h"

// CMS messages made by OpenSSL alone, without our writers. All are DER. The test fails if one cannot be made.
namespace TestSupport {

inline constexpr const char* kGroupOid = "1.3.6.1.4.1.48215.2.1";
inline constexpr const char* kRoomOid = "1.3.6.1.4.1.48215.2.2";
inline constexpr const char* kRoomUrlOid = "1.3.6.1.4.1.48215.2.3";

/// A signed attribute of one value.
struct AttributeSpec {
  std::string oid;
  std::string value;
  bool isText = true;  ///< UTF8String; otherwise OCTET STRING
};

/// One signer of a message that is to be made.
struct SignerSpec {
  CryptStand::Identity identity;
  std::vector<AttributeSpec> attributes;
  /// Now, unless set.
  std::optional<std::time_t> signingTime;
  /// Whether the message contains the signer's certificate.
  bool hasCertificate = true;
  /// Further certificates in the message.
  std::vector<CryptStand::Cert> more;
};

/// A SignedData around the content.
std::string MakeSigned(std::string_view content, const std::vector<SignerSpec>& signers);
/// The SignedData of one signer without that signer: it proves nothing.
std::string MakeUnsigned(std::string_view content, const SignerSpec& signer);
/// An EnvelopedData around the content, AES-256-CBC, one key-transport recipient for each certificate.
std::string MakeEnveloped(std::string_view content, const std::vector<CryptStand::Cert>& recipients);
/// The same for one recipient that is named by the identifier of its key.
std::string MakeEnvelopedByKeyId(std::string_view content, const CryptStand::Cert& recipient);
std::string MakeDigested(std::string_view content);
/// A message of the type Data.
std::string MakeData(std::string_view content);

/// The contents of a message, as OpenSSL reads them.
struct OpenedMessage {
  std::string content;
  std::vector<std::string> signerDigests;  ///< SHA-256 of each signer's certificate, lower-case hexadecimal
  std::string signatureAlgorithm;          ///< of the first signer
  std::time_t signingTime = 0;
  std::vector<std::pair<std::string, std::string>> attributes;  ///< UTF8Strings of the first signer
};

/// Opens an EnvelopedData with its one recipient's key and returns the content.
std::string OpenEnvelope(std::string_view message, const CryptStand::Identity& recipient);
/// Verifies a SignedData against its own certificates, without any chain, and reads it.
OpenedMessage OpenSigned(std::string_view message);

}  // namespace TestSupport

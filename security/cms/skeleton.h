#pragma once

#include <memory>

#include "foundation/ansistr.h"
#include "foundation/reference.h"
#include "security/ber/buffer.h"
#include "security/ber/segments.h"
#include "security/ber/source.h"
#include "security/certificate.h"
#include "security/cmsmsg.h"
#include "security/key.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

// What we read as a message (RFC 5652), in BER or DER. Elements in quotes are copied as they stand and left
// to OpenSSL's parser; only the content can be large.
//
//   message    = SEQUENCE { OID, [0] { body } }, which fills its source
//   body       = signed | enveloped | digested | data | other
//   other      = one element of any type, passed over, for every other OID
//   signed     = SEQUENCE { "version INTEGER", "digestAlgorithms SET",
//                           SEQUENCE { OID, [0] { OCTET STRING } OPTIONAL },
//                           "certificates [0]" OPTIONAL, "crls [1]" OPTIONAL, "signerInfos SET" }     (5.1)
//   enveloped  = SEQUENCE { "version INTEGER", "originatorInfo [0]" OPTIONAL, "recipientInfos SET",
//                           SEQUENCE { OID, "algorithm SEQUENCE", [0] IMPLICIT OCTET STRING OPTIONAL },
//                           "unprotectedAttrs [1]" OPTIONAL }                                         (6.1)
//   digested   = SEQUENCE { "version INTEGER", "digestAlgorithm SEQUENCE",
//                           SEQUENCE { OID, [0] { OCTET STRING } OPTIONAL }, "digest OCTET STRING" }  (7)
//   data       = OCTET STRING, or one element of any other type, passed over                          (4)
//
// Octet strings of the content are primitive or in segments (see BerSegments). A signed content that is no
// octet string, as PKCS #7 allowed, is refused. OIDs take at most kMaxOid octets, all copied elements
// together at most BerWalker::kMaxTaken.

/// A message without its content: the elements of its body around the content and the place of the content.
struct CmsSkeleton {
  static constexpr std::size_t kMaxOid = 127;

  CMSMsg::Type type = CMSMsg::Type::Unknown;
  BerBuffer oid;     ///< Contents octets of the content type.
  BerBuffer before;  ///< Elements of the body before the one that holds the content.
  BerBuffer inner;   ///< Elements beside the content in that one.
  BerBuffer after;   ///< Elements of the body after it.
  bool hasContent = false;
  bool isTooLarge = false;  ///< Beyond CMSLimits::kSkeleton, so that reading ended there.
  BerOctets content;
};

/// Reads a message; the reason of any other result than Loaded is in the error state.
CMSMsg::LoadResult LoadSkeleton(IByteSource& source, CmsSkeleton& skeleton) noexcept;
/// The same where only Loaded is of use.
bool ReadSkeleton(IByteSource& source, CmsSkeleton& skeleton) noexcept;
/// The skeleton out of OpenSSL's hands: encodes `message`, which has no content, and takes it apart.
bool ReadSkeleton(const CMS_ContentInfo* message, CmsSkeleton& skeleton) noexcept;
/// Has OpenSSL read the detached form of the message, in definite lengths.
CMSMsg::LoadResult ParseDetached(const CmsSkeleton& skeleton, CmsPtr& parsed) noexcept;

/// Has OpenSSL start the content encryption of an EnvelopedData: it encrypts the content key for the
/// recipients, or decrypts it for the key that was set. `context` is the cipher's, owned by the result; the
/// content goes through it directly. Null on failure, with a reason only on allocation failure: decryption
/// must not say what failed.
BioPtr StartContentCipher(CMS_ContentInfo* message, EVP_CIPHER_CTX*& context) noexcept;

/// The content type that the contents octets of an OBJECT IDENTIFIER name; Unknown when it has none here.
CMSMsg::Type FindContentType(const BerBuffer& oid) noexcept;
/// Its name: that of RFC 5652 and its companions without the "id-", or the OID in dotted text. False when the
/// octets are no OID.
bool GetContentTypeName(const BerBuffer& oid, OruGuiBase::AnsiStr& name) noexcept;
/// OID in dotted text.
OruGuiBase::AnsiStr GetDottedText(const ASN1_OBJECT* object) noexcept;

/// A symmetric key, wiped with its holder.
struct ContentKey {
  static constexpr std::uint32_t kMost = EVP_MAX_KEY_LENGTH;

  ContentKey() noexcept = default;
  ContentKey(const ContentKey&) = delete;
  ContentKey& operator=(const ContentKey&) = delete;
  ~ContentKey() { OruGuiBase::WipeMemory(bytes, sizeof(bytes)); }

  std::uint8_t bytes[kMost] = {};
  std::uint32_t size = 0;
};

/// What a CMSMsg holds of a message that was loaded.
struct LoadedMessage {
  std::unique_ptr<IByteSource> source;
  CmsSkeleton skeleton;
  OruGuiBase::AnsiStr typeName;
  /// OpenSSL's view of the skeleton, of SignedData and EnvelopedData alone.
  CmsPtr cms;

  // How to open an EnvelopedData: one of the two, the one that was set last.
  Certificate recipient;
  PrivateKey recipientKey{nullptr};
  std::unique_ptr<ContentKey> contentKey;
};

}  // namespace OruOssSec

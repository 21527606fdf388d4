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

// What is accepted as a message (RFC 5652), in BER or DER. Elements in quotes are copied unchanged and left
// to OpenSSL's parser; only the content can be large.
//
//   message    = SEQUENCE { OID, [0] { body } }, which fills its source
//   body       = signed | enveloped | digested | data | other
//   other      = one element of any type, skipped, for every other OID
//   signed     = SEQUENCE { "version INTEGER", "digestAlgorithms SET",
//                           SEQUENCE { OID, [0] { OCTET STRING } OPTIONAL },
//                           "certificates [0]" OPTIONAL, "crls [1]" OPTIONAL, "signerInfos SET" }     (5.1)
//   enveloped  = SEQUENCE { "version INTEGER", "originatorInfo [0]" OPTIONAL, "recipientInfos SET",
//                           SEQUENCE { OID, "algorithm SEQUENCE", [0] IMPLICIT OCTET STRING OPTIONAL },
//                           "unprotectedAttrs [1]" OPTIONAL }                                         (6.1)
//   digested   = SEQUENCE { "version INTEGER", "digestAlgorithm SEQUENCE",
//                           SEQUENCE { OID, [0] { OCTET STRING } OPTIONAL }, "digest OCTET STRING" }  (7)
//   data       = OCTET STRING, or one element of any other type, skipped                              (4)
//
// The octet string of a content is primitive or in segments (see BerSegments). A signed content that is no
// octet string, as PKCS #7 allowed, is refused. OIDs have at most kMaxOid octets, all copied elements
// together at most BerWalker::kMaxTaken.

/// A message without its content: the elements around the content, which it owns, and where the content is.
struct CmsSkeleton {
  /// Octets of an OID: the most whose length fits into one octet (X.690, 8.1.3.4).
  static constexpr std::size_t kMaxOid = 127;

  CMSMsg::Type type = CMSMsg::Type::Unknown;
  BerBuffer oid;     ///< Contents octets of the content type.
  BerBuffer before;  ///< Elements of the body before the one with the content.
  BerBuffer inner;   ///< Elements beside the content in that one.
  BerBuffer after;   ///< Elements of the body after it.
  bool hasContent = false;
  bool isTooLarge = false;  ///< Beyond CMSLimits::kSkeleton; reading ended there.
  BerOctets content;
};

/// Reads a message; the reason of any other result than Loaded is in the error state.
CMSMsg::LoadResult LoadSkeleton(IByteSource& source, CmsSkeleton& skeleton) noexcept;
/// The same for a caller that needs no reason but Loaded.
bool ReadSkeleton(IByteSource& source, CmsSkeleton& skeleton) noexcept;
/// Reads the skeleton of a message that OpenSSL built: encodes `message`, which has no content, and parses
/// it.
bool ReadSkeleton(const CMS_ContentInfo* message, CmsSkeleton& skeleton) noexcept;
/// Has OpenSSL parse the message without its content (a detached one), encoded with definite lengths.
CMSMsg::LoadResult ParseDetached(const CmsSkeleton& skeleton, CmsPtr& parsed) noexcept;

/// Has OpenSSL start the cipher of an EnvelopedData. That encrypts the content key for the recipients of a
/// new message, or uses the one that was decrypted. `context` is the cipher's and belongs to the result;
/// callers put the content through it directly. Null on failure, with a reason only for a failed allocation,
/// as decryption must not say what failed.
BioPtr StartContentCipher(CMS_ContentInfo* message, EVP_CIPHER_CTX*& context) noexcept;

/// The content type for the contents octets of an OBJECT IDENTIFIER; Unknown when it is not in the list.
CMSMsg::Type FindContentType(const BerBuffer& oid) noexcept;
/// Its name: that of RFC 5652 and its companions without the "id-", or the OID in dotted form. False when the
/// octets are no OID.
bool GetContentTypeName(const BerBuffer& oid, OruGuiBase::AnsiStr& name) noexcept;
/// An OID in dotted form; empty on failure.
OruGuiBase::AnsiStr GetDottedText(const ASN1_OBJECT* object) noexcept;

/// A symmetric key, wiped on destruction.
struct ContentKey {
  static constexpr std::uint32_t kMost = EVP_MAX_KEY_LENGTH;

  ContentKey() noexcept = default;
  ContentKey(const ContentKey&) = delete;
  ContentKey& operator=(const ContentKey&) = delete;
  ~ContentKey() { OruGuiBase::WipeMemory(bytes, sizeof(bytes)); }

  std::uint8_t bytes[kMost] = {};
  std::uint32_t size = 0;
};

/// A loaded message. Owns its source, which the content is streamed from as often as it is needed.
struct LoadedMessage {
  std::unique_ptr<IByteSource> source;
  CmsSkeleton skeleton;
  OruGuiBase::AnsiStr typeName;
  /// The skeleton as OpenSSL parsed it; only for SignedData and EnvelopedData.
  CmsPtr cms;

  // How to open an EnvelopedData: a recipient and key, or a content key, whichever was set last.
  Certificate recipient;
  PrivateKey recipientKey{nullptr};
  std::unique_ptr<ContentKey> contentKey;
};

}  // namespace OruOssSec

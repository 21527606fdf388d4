#pragma once

#include "foundation/ansistr.h"
#include "foundation/blob.h"
#include "foundation/datetime.h"
#include "foundation/kvmap.h"
#include "security/certificate.h"
#include "security/export.h"

namespace OruOssSec {

/// One signer of a SignedData (RFC 5652, 5.3).
class CMSSigner {
 public:
  /// The signer's certificate, empty when the message does not hold it.
  Certificate certificate;
  /// The time that the signer claims, in universal time; unset when there is none.
  OruGuiBase::DateTime signingTime;
  /// The signed attributes by OID in dotted text, each a string: the text of a string type in UTF-8, the
  /// upper-case hexadecimal of the content bytes of any other.
  OruGuiBase::KVMap signedAttributes;
};

/// One key-transport recipient of an EnvelopedData (RFC 5652, 6.2.1), named by issuer and serial number.
class ORUSEC_EXPORT CMSKeyTransRecipient {
 public:
  CMSKeyTransRecipient() noexcept = default;
  virtual ~CMSKeyTransRecipient();
  CMSKeyTransRecipient(const CMSKeyTransRecipient&) = delete;
  CMSKeyTransRecipient& operator=(const CMSKeyTransRecipient&) = delete;

  /// Issuer in the form of RFC 2253, in UTF-8; only what the form itself demands is escaped.
  OruGuiBase::AnsiStr issuer;
  /// Serial number in upper-case hexadecimal, two digits a byte, without prefix or sign byte ("0A3F",
  /// "8F01").
  OruGuiBase::AnsiStr serial;
  /// The content key, encrypted for that certificate.
  OruGuiBase::Blob encryptedKey;
};

}  // namespace OruOssSec

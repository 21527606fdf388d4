#pragma once

#include "foundation/ansistr.h"
#include "foundation/blob.h"
#include "foundation/datetime.h"
#include "foundation/kvmap.h"
#include "security/certificate.h"
#include "security/export.h"

namespace OruOssSec {

/// One signer of a SignedData (RFC 5652, 5.3). A value: it does not depend on the message.
class CMSSigner {
 public:
  /// The signer's certificate, empty when it is not in the message.
  Certificate certificate;
  /// The signing time that the signer claims, in UTC; unset when there is none.
  OruGuiBase::DateTime signingTime;
  /// The signed attributes by OID in dotted form, each a string: the value of a string type in UTF-8, the
  /// content bytes of any other type in upper-case hexadecimal.
  OruGuiBase::KVMap signedAttributes;
};

/// One key-transport recipient of an EnvelopedData (RFC 5652, 6.2.1), named by issuer and serial number. A
/// value: it does not depend on the message.
class ORUSEC_EXPORT CMSKeyTransRecipient {
 public:
  CMSKeyTransRecipient() noexcept = default;
  virtual ~CMSKeyTransRecipient();
  CMSKeyTransRecipient(const CMSKeyTransRecipient&) = delete;
  CMSKeyTransRecipient& operator=(const CMSKeyTransRecipient&) = delete;

  /// The issuer in the form of RFC 2253, in UTF-8; only what the form demands is escaped.
  OruGuiBase::AnsiStr issuer;
  /// The serial number in upper-case hexadecimal, two digits a byte, without prefix or sign byte ("0A3F",
  /// "8F01").
  OruGuiBase::AnsiStr serial;
  /// The content key, encrypted for that certificate.
  OruGuiBase::Blob encryptedKey;
};

}  // namespace OruOssSec

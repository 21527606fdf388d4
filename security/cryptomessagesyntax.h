#pragma once

#include "foundation/datetime.h"
#include "foundation/file.h"
#include "foundation/kvmap.h"
#include "security/certificate.h"
#include "security/cmslimits.h"
#include "security/export.h"
#include "security/isignhash.h"

namespace OruOssSec {

/// Operations on CMS that need no message object.
class ORUSEC_EXPORT CryptoMessageSyntax {
 public:
  CryptoMessageSyntax() = delete;

  /// Writes a SignedData for `content`, encapsulated, into `target`, which is made or emptied. One signer:
  /// `certificate`, RSASSA-PKCS1-v1_5 with SHA-512; its signature comes from `signer` and is verified with
  /// the certificate before the call succeeds. `attributes` are further signed attributes, OID in dotted text
  /// to a string, written as UTF8String; with those that every signature has, at most CMSLimits::kAttributes.
  /// `time` is the signing time; null leaves it out. False leaves the reason in the error state (a reason
  /// that `signer` handed to SetErrorMessage stands) and may leave a part of the message.
  static bool Sign(const OruGuiBase::File& content, const OruGuiBase::File& target,
                   const Certificate& certificate, ISignHash* signer, const OruGuiBase::KVMap& attributes,
                   const OruGuiBase::DateTime* time) noexcept;
};

}  // namespace OruOssSec

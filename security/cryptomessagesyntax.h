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

  /// Writes a SignedData with `content` in it into `target`, which is created or emptied. It has one signer:
  /// `certificate`, RSASSA-PKCS1-v1_5 with SHA-512. The signature comes from `signer` and is verified with
  /// the certificate before the call succeeds.
  ///
  /// `attributes` are further signed attributes, from OID in dotted form to a string, written as UTF8String.
  /// Together with those that every signature has they are at most CMSLimits::kAttributes. `time` is the
  /// signing time in UTC; null leaves it out. On false the reason is in the error state (a reason that
  /// `signer` handed to SetErrorMessage is kept), and a part of the message may be in `target`.
  static bool Sign(const OruGuiBase::File& content, const OruGuiBase::File& target,
                   const Certificate& certificate, ISignHash* signer, const OruGuiBase::KVMap& attributes,
                   const OruGuiBase::DateTime* time) noexcept;
};

}  // namespace OruOssSec

#pragma once

#include "foundation/datetime.h"
#include "foundation/queue.h"
#include "security/cms/skeleton.h"
#include "security/cmsparties.h"

namespace OruOssSec {

/// Reads the key-transport recipients of an EnvelopedData out of its skeleton.
bool ReadRecipients(const CmsSkeleton& skeleton,
                    OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) noexcept;

/// The certificate of `certificates` that the signer names, without a reference; null when there is none.
X509* FindSignerCertificate(CMS_SignerInfo* signer, STACK_OF(X509) * certificates) noexcept;
/// The claimed signing time in universal time, unset when there is none. False for one that cannot be read.
bool ReadSigningTime(CMS_SignerInfo* signer, OruGuiBase::DateTime& time) noexcept;
/// Reads the signers of a SignedData.
bool ReadSigners(const LoadedMessage& message, OruGuiBase::PtrContainerQueue<CMSSigner>& signers) noexcept;

}  // namespace OruOssSec

#pragma once

#include "foundation/datetime.h"
#include "foundation/queue.h"
#include "security/cms/skeleton.h"
#include "security/cmsparties.h"

namespace OruOssSec {

/// Reads the key-transport recipients of an EnvelopedData from its skeleton.
bool ReadRecipients(const CmsSkeleton& skeleton,
                    OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) noexcept;

/// Finds the certificate that the signer names. It still belongs to `certificates`; null when it is not
/// there.
X509* FindSignerCertificate(CMS_SignerInfo* signer, STACK_OF(X509) * certificates) noexcept;
/// Reads the claimed signing time, in UTC; unset when there is none. False for one that cannot be read.
bool ReadSigningTime(CMS_SignerInfo* signer, OruGuiBase::DateTime& time) noexcept;
/// Reads the signers of a SignedData, unverified.
bool ReadSigners(const LoadedMessage& message, OruGuiBase::PtrContainerQueue<CMSSigner>& signers) noexcept;

}  // namespace OruOssSec

#pragma once

#include "foundation/queue.h"
#include "security/cms/skeleton.h"
#include "security/cmsparties.h"

namespace OruOssSec {

/// Reads the key-transport recipients of an EnvelopedData out of its skeleton.
bool ReadRecipients(const CmsSkeleton& skeleton,
                    OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) noexcept;

}  // namespace OruOssSec

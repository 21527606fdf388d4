#pragma once

#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Whether each signer of a SignedData claims no signing time or one that can be read (RFC 5652, 11.3): one
/// attribute with one value, a UTCTime or GeneralizedTime with seconds. False leaves the reason in the error
/// state. Signers that are not built as they should be are left to OpenSSL's parser.
///
/// OpenSSL's versions differ here: some refuse the whole message for such a time, so that it would pass for
/// plain content, others read it.
bool AreSigningTimesReadable(const CmsSkeleton& skeleton) noexcept;

}  // namespace OruOssSec

#pragma once

#include "security/certstore.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Checks every signer of a SignedData: its signature over the signed attributes, and the digest and type of
/// the content that these name; with `store`, which may be null, also its chain. The content is read once.
///
/// Digests: SHA-1 and the SHA-2 and SHA-3 families. RSA keys have at least 2048 bits.
bool VerifySigners(const LoadedMessage& message, const CertStore* store) noexcept;

/// Whether each signer of a SignedData claims no signing time or one that can be read (RFC 5652, 11.3): one
/// attribute with one value, a UTCTime or GeneralizedTime with seconds. False leaves the reason in the error
/// state. Signers that are not built as they should be are left to OpenSSL's parser.
///
/// OpenSSL's versions differ here: some refuse the whole message for such a time, so that it would pass for
/// plain content, others read it.
bool AreSigningTimesReadable(const CmsSkeleton& skeleton) noexcept;

}  // namespace OruOssSec

#pragma once

#include "security/certstore.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Checks every signer of a SignedData: its signature over the signed attributes, and the digest and type of
/// the content that these name. Unless `store` is null, its chain too. The content is read once.
///
/// Digests: SHA-1 and the SHA-2 and SHA-3 families. RSA keys have at least 2048 bits.
bool VerifySigners(const LoadedMessage& message, const CertStore* store) noexcept;

/// Whether each signer of a SignedData claims no signing time or a readable one (RFC 5652, 11.3): one
/// attribute with one value, a UTCTime or GeneralizedTime with seconds. On false the reason is in the error
/// state. Signers of an invalid structure are left to OpenSSL's parser.
///
/// Called before OpenSSL parses the message, since its versions differ for other times: some refuse the whole
/// message, which would then be taken for plain content, others read it.
bool AreSigningTimesReadable(const CmsSkeleton& skeleton) noexcept;

}  // namespace OruOssSec

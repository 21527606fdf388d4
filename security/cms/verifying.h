#pragma once

#include "security/certstore.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Checks every signer of a SignedData: its signature over the signed attributes, and the digest and type of
/// the content that these name; with `store`, which may be null, also its chain. The content is read once.
///
/// Digests: SHA-1 and the SHA-2 and SHA-3 families. RSA keys have at least 2048 bits.
bool VerifySigners(const LoadedMessage& message, const CertStore* store) noexcept;

}  // namespace OruOssSec

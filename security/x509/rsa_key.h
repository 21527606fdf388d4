#pragma once

#include "foundation/blob.h"
#include "security/openssl_handles.h"

// Private to this folder.
namespace OruOssSec {

/// The key of an RSAPrivateKey structure with two primes (RFC 8017, A.1.2) in DER; null when it is not one.
///
/// OpenSSL's own decoders free copies of what they read without wiping them; this one leaves nothing behind.
KeyPtr DecodeRSAPrivateKey(const OruGuiBase::BlobConst& bytes) noexcept;

}  // namespace OruOssSec

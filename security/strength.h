#pragma once

#include "security/openssl_handles.h"

// Private to this folder: what is too weak to prove or to protect anything, whatever the system's OpenSSL is
// configured to let pass.
namespace OruOssSec {

/// Whether the certificate's key is an RSA key of fewer than 2048 bits. False for one that cannot be read,
/// which nothing can be checked with.
bool HasShortKey(const X509* certificate) noexcept;

/// What is wrong with the algorithm that the certificate is signed with, in words: MD5, SHA-1 or another
/// digest with less than 112 bits of security. Null when nothing is.
const char* FindWeakSignature(X509* certificate) noexcept;

}  // namespace OruOssSec

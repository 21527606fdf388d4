#pragma once

#include <cstdint>

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

/// What one check of a signature with this key costs at most, in units of a check with RSA of 4096 bits and
/// the usual exponent 65537, or with P-256. Others cost up to a hundred units and more: the time grows with
/// the square of an RSA modulus and with the exponent, both of which whoever made the key chose.
std::uint32_t GetCheckCost(const EVP_PKEY* key) noexcept;

}  // namespace OruOssSec

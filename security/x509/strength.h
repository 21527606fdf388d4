#pragma once

#include <cstdint>

#include "security/openssl_handles.h"

// What is too weak to prove or to protect anything, whatever the configuration of the system's OpenSSL
// allows.
namespace OruOssSec {

/// Whether the certificate's key is an RSA key of fewer than 2048 bits. False for a key that cannot be read:
/// no signature verifies with it anyway.
bool HasShortKey(const X509* certificate) noexcept;

/// Says what is wrong with the algorithm that the certificate is signed with: MD5, SHA-1 or another digest
/// with less than 112 bits of security. Null when it is strong enough.
const char* FindWeakSignature(X509* certificate) noexcept;

/// What one check of a signature with this key costs at most. The unit is a check with RSA of 4096 bits and
/// the usual exponent 65537, or with P-256. Other keys cost up to a hundred units and more: the time grows
/// with the square of an RSA modulus and with the length of the exponent, and whoever made the key chose
/// both.
std::uint32_t GetCheckCost(const EVP_PKEY* key) noexcept;

}  // namespace OruOssSec

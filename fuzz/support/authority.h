#pragma once

#include <string>
#include <string_view>

// The cryptographic results of a key server, computed with the keys of the world.
namespace Fuzz {

/// Signs a base64 SHA-512 hash with the group's integrity key. The signature is base64, or empty if the hash
/// is invalid.
std::string SignBase64(std::string_view hash);
/// Decrypts base64 bytes with the room's key. The result is base64, or empty if they cannot be decrypted.
std::string DecryptBase64(std::string_view encrypted);

}  // namespace Fuzz

#pragma once

#include <string>
#include <string_view>

// What a key server computes with the keys of the world.
namespace Fuzz {

/// The base64 signature of a base64 SHA-512 hash with the group's integrity key; empty when there is none.
std::string SignBase64(std::string_view hash);
/// The base64 plain text of base64 bytes encrypted for the room; empty when they do not open.
std::string DecryptBase64(std::string_view encrypted);

}  // namespace Fuzz

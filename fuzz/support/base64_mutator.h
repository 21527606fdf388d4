#pragma once

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// A mutator for targets whose input is base64 or PEM. Every other time it decodes the base64, changes the
/// bytes and encodes them again: changes to the characters rarely give valid base64 of something interesting.
std::size_t MutateBase64(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed);

}  // namespace Fuzz

#pragma once

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// A mutator for targets whose input is text around base64: every other time it changes the bytes behind the
/// text rather than the text, which a fuzzer that flips characters hardly ever does well.
std::size_t MutateBase64(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed);

}  // namespace Fuzz

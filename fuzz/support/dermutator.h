#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Fuzz {

/// A mutator for BER and DER: it changes one element of the tree (its content, its place, its form, its
/// number) and writes all lengths anew, so that the change reaches the reader of that element and does not
/// end at the outermost length. Every fourth time it changes bytes as they come, lengths included.
std::size_t MutateDer(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed);
/// The same for bytes by themselves.
std::string MutateDer(std::string_view bytes, unsigned int seed);

}  // namespace Fuzz

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Fuzz {

/// A mutator for BER and DER: it changes one element of the tree (its content, its place, its form, its
/// number) and writes all lengths again, so that the change reaches the reader of that element and does not
/// end at the outermost length. Every fourth time it changes bytes as they come, lengths included.
std::size_t MutateDer(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed);
/// The same for bytes by themselves.
std::string MutateDer(std::string_view bytes, unsigned int seed);

/// The change of one element of BER or DER, by choices from elsewhere: `below` gives a number below a bound,
/// `change` another content in place of one.
std::string ChangeElement(std::string_view bytes, const std::function<std::size_t(std::size_t)>& below,
                          const std::function<std::string(std::string)>& change);

}  // namespace Fuzz

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// libFuzzer's default mutator. Weak: a program that replays inputs has none, and never calls it.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize)
    __attribute__((weak));

namespace Fuzz {

/// A mutator for BER and DER (X.690): it changes one element of the tree (removes, repeats, replaces or
/// rewrites it) and encodes all lengths again, so that the change reaches the parser of that element and is
/// not refused for a wrong outer length. Every fourth time it changes any bytes, lengths included.
std::size_t MutateDer(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed);
/// The same for bytes by themselves.
std::string MutateDer(std::string_view bytes, unsigned int seed);

/// Changes one element of BER or DER. The caller makes the choices: `below` returns a number below a bound,
/// `change` a changed copy of some content.
std::string ChangeElement(std::string_view bytes, const std::function<std::size_t(std::size_t)>& below,
                          const std::function<std::string(std::string)>& change);

}  // namespace Fuzz

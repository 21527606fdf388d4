#pragma once

#include <cstdint>
#include <string>

#include "fuzz/support/input.h"

namespace Fuzz {

/// Lends the bytes to an input, as the fuzzer would.
inline Input Read(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

}  // namespace Fuzz

#pragma once

#include <cstdint>
#include <vector>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// In the result of FindLastPlaces: the key occurred before.
inline constexpr std::uint32_t kRepeated = 0xFFFFFFFFU;

/// For the first occurrence of each key the place of its last occurrence, for any other occurrence kRepeated.
/// Empty if all keys are distinct. Takes at most n log n, even for keys chosen to make it slow. Throws
/// std::bad_alloc.
std::vector<std::uint32_t> FindLastPlaces(const AnsiStr* keys, std::uint32_t count);

}  // namespace OruGuiBase

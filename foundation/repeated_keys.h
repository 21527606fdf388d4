#pragma once

#include <cstdint>
#include <vector>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// In the result of FindLastPlaces: the key was there before.
inline constexpr std::uint32_t kRepeated = 0xFFFFFFFFU;

/// For each key that occurs for the first time the place of its last occurrence, for any other kRepeated;
/// empty when all keys are distinct. In n log n, whatever the keys are. Throws std::bad_alloc.
std::vector<std::uint32_t> FindLastPlaces(const AnsiStr* keys, std::uint32_t count);

}  // namespace OruGuiBase

#pragma once

#include <cstdint>

#include "foundation/export.h"

namespace OruGuiBase {

/// A monotonic count of milliseconds. It wraps after 49 days; differences stay correct.
ORUGUI_EXPORT std::uint32_t GetClockTicks() noexcept;
/// Milliseconds since an earlier result of GetClockTicks().
ORUGUI_EXPORT std::uint32_t GetClockTicks(std::uint32_t since) noexcept;
/// A pseudo-random number from `low` to `high`, both included. Not for secrets.
ORUGUI_EXPORT std::uint64_t GetPseudoRandomNumberEx(std::uint64_t low, std::uint64_t high) noexcept;

}  // namespace OruGuiBase

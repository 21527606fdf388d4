#pragma once

#include <cstdint>

/// A size in bytes that cannot be allocated after LimitMemory().
inline constexpr std::uint32_t kTooMuch = 0x60000000;

/// Makes allocations of kTooMuch bytes fail for the rest of this process; for the child of a death test.
void LimitMemory();

/// Whether a sanitizer watches each block of memory, which makes many blocks slow.
bool IsMemorySanitized();

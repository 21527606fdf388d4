#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// The most characters that UHyper2Str writes, not counting the final NUL: digits of the largest 64-bit
/// value.
inline constexpr std::uint32_t kUHyperDigits = 20;

/// Writes the value in decimal and a NUL to `buffer`, which must have kUHyperDigits + 1 characters.
ORUGUI_EXPORT void UHyper2Str(char* buffer, std::uint64_t value) noexcept;

/// Parses the whole string as a decimal number of at most `limit` digits, with `sign` true after an optional
/// minus. 0 means success. Any other character, no digit or a value out of range is a failure; `value` then
/// stays as it is. If `end` is not null, parsing stops at the first other character instead and stores its
/// address there.
ORUGUI_EXPORT int Str2ULong(const AnsiStr& text, const char** end, std::uint32_t& value, bool sign,
                            std::uint32_t limit) noexcept;
ORUGUI_EXPORT int Str2Hyper(const AnsiStr& text, const char** end, std::int64_t& value, bool sign,
                            std::uint32_t limit) noexcept;

}  // namespace OruGuiBase

#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Characters that UHyper2Str may write, the final NUL not counted.
inline constexpr std::uint32_t kUHyperDigits = 20;

/// Writes the decimal text of a value and a NUL to `buffer`, which has room for kUHyperDigits + 1 characters.
ORUGUI_EXPORT void UHyper2Str(char* buffer, std::uint64_t value) noexcept;

/// Parses the whole text as a decimal number of at most `limit` digits; 0 means success. The text is digits
/// alone; with `sign` a minus may stand before them. An empty text, anything else in it, or a value out of
/// range is a failure, and `value` is left alone. With `end`, parsing stops at the first other character
/// instead, whose address goes there.
ORUGUI_EXPORT int Str2ULong(const AnsiStr& text, const char** end, std::uint32_t& value, bool sign,
                            std::uint32_t limit) noexcept;
ORUGUI_EXPORT int Str2Hyper(const AnsiStr& text, const char** end, std::int64_t& value, bool sign,
                            std::uint32_t limit) noexcept;

}  // namespace OruGuiBase

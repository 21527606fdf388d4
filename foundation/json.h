#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"
#include "foundation/val.h"

namespace OruGuiBase {

/// Containers that JSON2Val opens inside each other before it refuses the text.
inline constexpr std::uint32_t kMaxJSONDepth = 200;

/// Parses JSON (RFC 8259, UTF-8, nothing after the value): object to map, array, string, integer, true and
/// false to bool, null to nil, any other number to type 3. A key given twice keeps its first place and its
/// last value. Time and memory are linear in the text. False on bad input; `error` then gives the reason and
/// the position in words of ours, never the input's, and `value` is left alone.
ORUGUI_EXPORT bool JSON2Val(const AnsiStr& text, Val& value, AnsiStr& error) noexcept;

/// Writes a value as compact JSON, members in order of insertion. `pretty` is false and `strict` is true
/// everywhere; a text that is not UTF-8 or a type that JSON does not have is then a failure, with the reason
/// in `error`.
ORUGUI_EXPORT bool Val2JSON(const Val& value, AnsiStr& text, AnsiStr& error, bool pretty,
                            bool strict) noexcept;

}  // namespace OruGuiBase

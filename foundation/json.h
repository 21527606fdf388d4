#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"
#include "foundation/val.h"

namespace OruGuiBase {

/// How deep containers may be nested. More is refused, so that recursion cannot exhaust the stack.
inline constexpr std::uint32_t kMaxJSONDepth = 200;

/// Parses JSON (RFC 8259, UTF-8, nothing after the value): object to map, array, string, integer, true and
/// false to bool, null to nil, any other number to ValType::Number. A key that occurs twice keeps its first
/// place and its last value. Time and memory are linear in the input. False on bad input: `error` then has
/// the reason and the position, but no part of the input, which may be secret; `value` stays as it is.
ORUGUI_EXPORT bool JSON2Val(const AnsiStr& text, Val& value, AnsiStr& error) noexcept;

/// Writes a value as compact JSON, members in order of insertion. A string that is not UTF-8 or a type that
/// JSON does not have is a failure, with the reason in `error`. `pretty` is false and `strict` is true
/// everywhere and have no effect.
ORUGUI_EXPORT bool Val2JSON(const Val& value, AnsiStr& text, AnsiStr& error, bool pretty,
                            bool strict) noexcept;

}  // namespace OruGuiBase

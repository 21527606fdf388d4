#pragma once

#include <cstdarg>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// printf-style formatting. A format that the C library refuses gives the empty string; a result of 2 GiB and
/// more, which it cannot count, the beginning of the format up to its first argument and "(text too long)".
/// An argument of "%s" ends at its first NUL byte, so a text with one inside (SimpleQuote shows it) goes in
/// cut.
ORUGUI_EXPORT AnsiStr FmtArgs(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));
/// The same with a list of arguments, which is used up.
ORUGUI_EXPORT AnsiStr FmtList(const char* format, std::va_list list) noexcept
    __attribute__((format(printf, 1, 0)));
/// The text in double quotes, for messages. Quotes, backslashes and control characters inside are escaped.
ORUGUI_EXPORT AnsiStr SimpleQuote(const AnsiStr& text) noexcept;

}  // namespace OruGuiBase

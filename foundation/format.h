#pragma once

#include <cstdarg>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// printf-style formatting. If the C library refuses the format, the result is empty. It cannot count a
/// result of 2 GiB or more: then the result is the format up to its first argument and "(text too long)". An
/// argument of "%s" ends at its first NUL byte; SimpleQuote shows such bytes.
ORUGUI_EXPORT AnsiStr FmtArgs(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));
/// The same with a list of arguments, which cannot be used afterwards.
ORUGUI_EXPORT AnsiStr FmtList(const char* format, std::va_list list) noexcept
    __attribute__((format(printf, 1, 0)));
/// The string in double quotes, for messages. Quotes, backslashes and control characters in it are escaped.
ORUGUI_EXPORT AnsiStr SimpleQuote(const AnsiStr& text) noexcept;

}  // namespace OruGuiBase

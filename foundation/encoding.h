#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/blob.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// The string without blanks and control characters at both ends.
ORUGUI_EXPORT AnsiStr CleanStr(const AnsiStr& text) noexcept;
/// The string as one segment of a URL path: all but RFC 3986's unreserved characters become %XX, in upper
/// case.
ORUGUI_EXPORT AnsiStr EscapeURL(const AnsiStr& text) noexcept;
/// Base64 (RFC 4648, padded) of the bytes, with `lineEnd` after each `lineLength` characters but the last; 0
/// makes no lines.
ORUGUI_EXPORT AnsiStr Binary2B64Str(const void* data, std::uint32_t size, std::uint32_t lineLength,
                                    const char* lineEnd) noexcept;
/// Decodes base64. `size` is the capacity of `target` on entry and the number of decoded bytes on return.
/// Characters of `ignored` are skipped. False, with the reason in the error state, if anything else is not
/// base64 with its full padding, if bits are set that the padding cuts off, or if the bytes do not fit.
ORUGUI_EXPORT bool B64Str2Binary(const AnsiStr& text, void* target, std::uint32_t& size,
                                 const char* ignored) noexcept;
/// The same into a blob, which gets the size of the decoded bytes. On failure the blob is empty.
ORUGUI_EXPORT bool B64Str2Blob(const AnsiStr& text, Blob& bytes, const char* ignored) noexcept;
/// B64Str2Binary for hexadecimal of either case. An odd number of digits is bad input.
ORUGUI_EXPORT bool B16Str2Binary(const AnsiStr& text, void* target, std::uint32_t& size,
                                 const char* ignored) noexcept;
/// Hexadecimal form of the bytes, two digits for each.
ORUGUI_EXPORT AnsiStr Binary2B16Str(const void* data, std::uint32_t size, bool upperCase) noexcept;
/// Whether the bytes are well-formed UTF-8 (RFC 3629: no overlong form, no surrogate, nothing above
/// U+10FFFF).
ORUGUI_EXPORT bool IsValidUTF8(const char* text, std::uint32_t length) noexcept;

}  // namespace OruGuiBase

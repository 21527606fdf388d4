// Formats messages and traces like printf, into an AnsiStr. Arguments may be secrets, so no copy is kept
// outside the string, which is wiped.
#include "foundation/format.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace OruGuiBase {

namespace {

// Stands for a result that the C library cannot count: the format up to its first argument.
AnsiStr TooLong(std::string_view format) noexcept {
  return AnsiStr(format.substr(0, format.find('%'))) + "(text too long)";
}

}  // namespace

AnsiStr FmtArgs(const char* format, ...) noexcept {
  std::va_list list;
  va_start(list, format);
  AnsiStr text = FmtList(format, list);
  va_end(list);
  return text;
}

AnsiStr FmtList(const char* format, std::va_list list) noexcept {
  std::va_list again;
  // vsnprintf consumes its list, and it is needed twice.
  va_copy(again, list);
  // Measured first instead of tried on a stack buffer, which would keep a part of a secret.
  const int length = std::vsnprintf(nullptr, 0, format, list);
  AnsiStr text;
  if (length > 0) {
    char* const target = text.Alloc(static_cast<std::uint32_t>(length));
    if (target == nullptr) DebugAbort("Could not allocate string");
    std::vsnprintf(target, static_cast<std::size_t>(length) + 1, format, again);
  } else if (length < 0 && errno == EOVERFLOW) {
    text = TooLong(format);
  }
  va_end(again);
  return text;
}

// For names from outside in messages: a control character could forge a line of a log.
AnsiStr SimpleQuote(const AnsiStr& text) noexcept {
  static constexpr char kDigits[] = "0123456789abcdef";
  AnsiStr quoted("\"");
  quoted.Reserve(text.GetLength() < 0xFFFFFFF0U ? text.GetLength() + 2 : text.GetLength());
  for (const char character : text.View()) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      const char escape[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
      quoted.Append(escape, sizeof escape);
      continue;
    }
    if (character == '"' || character == '\\') quoted += '\\';
    quoted += character;
  }
  return quoted += '"';
}

}  // namespace OruGuiBase

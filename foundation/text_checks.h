#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "foundation/encoding.h"

// What strings of others are checked for, before they go into JSON, onto a terminal or into a request.
// Inline, since the library does not export them.
namespace OruGuiBase {

/// Whether the bytes are well-formed UTF-8, as IsValidUTF8.
inline bool IsUtf8(std::string_view bytes) noexcept {
  return bytes.size() <= std::numeric_limits<std::uint32_t>::max() &&
         IsValidUTF8(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

/// Bytes of the UTF-8 character at the start of a string that is not empty; 0 if there is none.
inline std::size_t GetCharacterLength(std::string_view bytes) noexcept {
  for (std::size_t length = 1; length <= 4 && length <= bytes.size(); ++length) {
    if (IsUtf8(bytes.substr(0, length))) return length;
  }
  return 0;
}

/// The string with U+FFFD in place of each byte that is not UTF-8.
inline std::string MakeUtf8(std::string_view bytes) {
  if (IsUtf8(bytes)) return std::string(bytes);
  std::string clean;
  while (!bytes.empty()) {
    const std::size_t length = GetCharacterLength(bytes);
    clean += length > 0 ? bytes.substr(0, length) : std::string_view("\xEF\xBF\xBD");
    bytes.remove_prefix(length > 0 ? length : 1);
  }
  return clean;
}

/// Whether the byte is a control character of ASCII.
inline bool IsControlCharacter(char character) noexcept {
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
}

inline bool HasControlCharacter(std::string_view text) noexcept {
  return std::any_of(text.begin(), text.end(), IsControlCharacter);
}

/// Whether the string can be the name of a header: a token (RFC 9110, 5.6.2).
inline bool IsHeaderName(std::string_view name) noexcept {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return !name.empty() && std::all_of(name.begin(), name.end(), [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kMarks.find(c) != std::string_view::npos;
  });
}

/// Whether the string can be the value of a header: no control character but the tabulator (RFC 9110, 5.5).
inline bool IsHeaderValue(std::string_view value) noexcept {
  return std::none_of(value.begin(), value.end(), [](char c) { return c != '\t' && IsControlCharacter(c); });
}

}  // namespace OruGuiBase

// Escapes the input as a segment of a URL: the result has only unreserved characters and escapes, and
// unescapes to the input. The same input is also trimmed.
#include <cctype>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/encoding.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

namespace {

bool IsUnreserved(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 ||
         std::string_view("-._~").find(character) != std::string_view::npos;
}

std::string Unescape(std::string_view escaped) {
  std::string text;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] != '%') {
      Fuzz::Require(IsUnreserved(escaped[i]), "what is not escaped is unreserved");
      text.push_back(escaped[i]);
      continue;
    }
    const std::string_view digits = escaped.substr(i + 1, 2);
    unsigned value = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    Fuzz::Require(digits.size() == 2 && end.ptr == digits.data() + 2, "an escape has two digits");
    Fuzz::Require(!IsUnreserved(static_cast<char>(value)), "only what has to be is escaped");
    text.push_back(static_cast<char>(value));
    i += 2;
  }
  return text;
}

// What CleanStr documents: blanks and control characters.
bool IsBlank(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= 0x20 || byte == 0x7F;
}

void CheckTrimmed(std::string_view text) {
  const OruGuiBase::AnsiStr cleaned = OruGuiBase::CleanStr(Fuzz::Ansi(text));
  const std::string_view clean = cleaned.View();
  Fuzz::Require(text.find(clean) != std::string_view::npos, "a trimmed string is a part of the string");
  if (!clean.empty())
    Fuzz::Require(!IsBlank(clean.front()) && !IsBlank(clean.back()), "a trimmed string has no blank ends");
  for (const char character : text.substr(0, clean.empty() ? text.size() : text.find(clean.front())))
    Fuzz::Require(IsBlank(character), "nothing but blanks is trimmed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = Fuzz::View(data, size);
  const OruGuiBase::AnsiStr escaped = OruGuiBase::EscapeURL(Fuzz::Ansi(text));
  Fuzz::Require(Unescape(escaped.View()) == text, "the escaped string unescapes to the input");
  CheckTrimmed(text);
  return 0;
}

// Encodes the input as base64 and hexadecimal and decodes it again; and decodes the input itself and, if that
// succeeds, encodes it again.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/encoding.h"
#include "fuzz/support/message.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

namespace {

using OruGuiBase::AnsiStr;

constexpr const char* kIgnored = "\r\n";
constexpr std::uint32_t kLineLength = 64;

using Decoder = bool (*)(const AnsiStr& text, void* target, std::uint32_t& size,
                         const char* ignored) noexcept;

// Decodes into a buffer of exactly `capacity` bytes, so that AddressSanitizer notices a byte too many.
bool Decode(Decoder decoder, const AnsiStr& text, std::size_t capacity, std::string& bytes) {
  std::string buffer(capacity, '\0');
  auto size = static_cast<std::uint32_t>(capacity);
  if (!decoder(text, buffer.data(), size, kIgnored)) {
    Fuzz::RequireReason();
    return false;
  }
  Fuzz::Require(size <= capacity, "no more is decoded than the buffer takes");
  bytes = buffer.substr(0, size);
  return true;
}

void CheckBytes(Decoder decoder, const AnsiStr& encoded, std::string_view bytes) {
  std::string decoded;
  Fuzz::Require(Decode(decoder, encoded, bytes.size(), decoded) && decoded == bytes,
                "what was encoded decodes into a buffer of its size");
  if (!bytes.empty())
    Fuzz::Require(!Decode(decoder, encoded, bytes.size() - 1, decoded), "too small a buffer is a failure");
}

std::string WithoutIgnored(std::string_view text) {
  std::string kept(text);
  std::erase_if(kept, [](char character) { return character == '\r' || character == '\n'; });
  return kept;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  return text;
}

// Apart from line ends and the case of hexadecimal digits, two different strings must not decode to the same
// bytes: one of them would not come back.
void CheckText(std::string_view text) {
  std::string bytes;
  if (Decode(OruGuiBase::B64Str2Binary, Fuzz::Ansi(text), text.size(), bytes)) {
    const auto again =
        OruGuiBase::Binary2B64Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 0, kIgnored);
    Fuzz::Require(Fuzz::Str(again) == WithoutIgnored(text), "bytes have one base64 encoding");
  }
  if (Decode(OruGuiBase::B16Str2Binary, Fuzz::Ansi(text), text.size(), bytes)) {
    const auto again = OruGuiBase::Binary2B16Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                                                 /*upperCase=*/false);
    Fuzz::Require(Fuzz::Str(again) == Lower(WithoutIgnored(text)), "bytes have one hexadecimal encoding");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = Fuzz::View(data, size);
  const auto length = static_cast<std::uint32_t>(size);
  for (const std::uint32_t line : {0U, kLineLength})
    CheckBytes(OruGuiBase::B64Str2Binary, OruGuiBase::Binary2B64Str(data, length, line, kIgnored), bytes);
  for (const bool upperCase : {false, true})
    CheckBytes(OruGuiBase::B16Str2Binary, OruGuiBase::Binary2B16Str(data, length, upperCase), bytes);
  CheckText(bytes);
  return 0;
}

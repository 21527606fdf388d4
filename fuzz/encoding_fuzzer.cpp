#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/encoding.h"
#include "fuzz/support/message.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

// The input is bytes, to be encoded as base64 and hexadecimal and decoded again; and it is text, to be
// decoded and, where it can be, encoded again.
namespace {

using OruGuiBase::AnsiStr;

constexpr const char* kIgnored = "\r\n";
constexpr std::uint32_t kLineLength = 64;

using Decoder = bool (*)(const AnsiStr& text, void* target, std::uint32_t& size,
                         const char* ignored) noexcept;

// Into a buffer of its true size, so that a byte too many is seen.
bool Decode(Decoder decoder, const AnsiStr& text, std::size_t room, std::string& bytes) {
  std::string buffer(room, '\0');
  auto size = static_cast<std::uint32_t>(room);
  if (!decoder(text, buffer.data(), size, kIgnored)) {
    Fuzz::RequireReason();
    return false;
  }
  Fuzz::Require(size <= room, "no more is decoded than there is room");
  bytes = buffer.substr(0, size);
  return true;
}

void CheckBytes(Decoder decoder, const AnsiStr& encoded, std::string_view bytes) {
  std::string decoded;
  Fuzz::Require(Decode(decoder, encoded, bytes.size(), decoded) && decoded == bytes,
                "what was encoded decodes into room of its size");
  if (!bytes.empty())
    Fuzz::Require(!Decode(decoder, encoded, bytes.size() - 1, decoded), "too little room is a failure");
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

void CheckText(std::string_view text) {
  std::string bytes;
  if (Decode(OruGuiBase::B64Str2Binary, Fuzz::Ansi(text), text.size(), bytes)) {
    const auto again =
        OruGuiBase::Binary2B64Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 0, kIgnored);
    Fuzz::Require(Fuzz::Str(again) == WithoutIgnored(text), "bytes have one base64 text");
  }
  if (Decode(OruGuiBase::B16Str2Binary, Fuzz::Ansi(text), text.size(), bytes)) {
    const auto again =
        OruGuiBase::Binary2B16Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()), false);
    Fuzz::Require(Fuzz::Str(again) == Lower(WithoutIgnored(text)), "bytes have one hexadecimal text");
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

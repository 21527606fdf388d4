#include "bindings/c/text.h"

#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include "foundation/encoding.h"
#include "foundation/json.h"
#include "foundation/reference.h"
#include "foundation/val.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

// Bytes of the UTF-8 character at the start of a string that is not empty; 0 if there is none, or a NUL.
std::size_t CharacterLength(std::string_view text) {
  if (text.front() == '\0') return 0;
  for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length) {
    if (IsUtf8(text.substr(0, length))) return length;
  }
  return 0;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  return OruGuiBase::IsValidUTF8(text.data(), static_cast<std::uint32_t>(text.size()));
}

std::string MakeUtf8(std::string_view text) {
  if (IsUtf8(text) && text.find('\0') == std::string_view::npos) return std::string(text);
  std::string clean;
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    clean += length > 0 ? text.substr(0, length) : std::string_view("\xEF\xBF\xBD");
    text.remove_prefix(length > 0 ? length : 1);
  }
  return clean;
}

void Wipe(std::string& text) noexcept {
  OruGuiBase::WipeMemory(text.data(), text.size());
}

std::string TimeText(const OruGuiBase::datetime& time) {
  if (time == OruGuiBase::datetime()) return {};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", time.year, time.month, time.day,
                time.hour, time.minute, time.second);
  return text;
}

std::string ToJson(const KVMap& object) {
  AnsiStr text;
  AnsiStr reason;
  if (!OruGuiBase::Val2JSON(Val(object), text, reason, false, true))
    throw std::runtime_error(ToString(reason));
  return ToString(text);
}

void SetText(KVMap& object, const char* name, std::string_view text) {
  object.Put(name, ToAnsi(MakeUtf8(text)));
}

}  // namespace CryptCliC

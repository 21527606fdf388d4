#include "bindings/c/text.h"

#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include "foundation/json.h"
#include "foundation/reference.h"
#include "foundation/val.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

std::string MakeUtf8(std::string_view text) {
  std::string clean = OruGuiBase::MakeUtf8(text);
  for (std::size_t at = 0; (at = clean.find('\0', at)) != std::string::npos;)
    clean.replace(at, 1, "\xEF\xBF\xBD");
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
  if (!OruGuiBase::Val2JSON(Val(object), text, reason, /*pretty=*/false, /*strict=*/true))
    throw std::runtime_error(ToString(reason));
  return ToString(text);
}

void SetText(KVMap& object, const char* name, std::string_view text) {
  object.Put(name, ToAnsi(MakeUtf8(text)));
}

}  // namespace CryptCliC

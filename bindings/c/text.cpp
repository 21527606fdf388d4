// Strings and JSON at the boundary of the C interface; every source of bindings/c uses them. What comes in as
// a C string is checked to be UTF-8, and what goes out is made UTF-8: it can come from a server, a
// certificate or a path in any encoding.
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

// Signing times and validities are in UTC, hence the "Z". The buffer has space for any values of the members,
// valid or not.
std::string TimeText(const OruGuiBase::datetime& time) {
  if (time == OruGuiBase::datetime()) return {};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", time.year, time.month, time.day,
                time.hour, time.minute, time.second);
  return text;
}

// Strict: a value that JSON cannot express is a defect of the caller, not something to leave out.
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

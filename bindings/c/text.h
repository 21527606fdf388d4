#pragma once

#include <string>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/datetime.h"
#include "foundation/kvmap.h"
#include "foundation/text_checks.h"

// Conversions between C strings, the standard library and the class below; used by all of bindings/c.
namespace CryptCliC {

inline std::string ToString(const OruGuiBase::AnsiStr& text) {
  return std::string(text.View());
}
inline OruGuiBase::AnsiStr ToAnsi(std::string_view text) {
  return OruGuiBase::AnsiStr(text);
}

using OruGuiBase::IsUtf8;
/// The string with U+FFFD in place of bytes that are not UTF-8, so that JSON can have it, and of NUL bytes,
/// where a C string would end.
std::string MakeUtf8(std::string_view text);
/// The object as compact JSON. Its strings have to be UTF-8. The result can contain secrets, and the caller
/// wipes it; the copies made on the way are wiped here.
std::string ToJson(const OruGuiBase::KVMap& object);
/// Overwrites the characters. Call it before the memory of a secret is freed.
void Wipe(std::string& text) noexcept;
/// RFC 3339; empty for an unset time.
std::string TimeText(const OruGuiBase::datetime& time);
/// Sets a member to a string, made valid UTF-8 first.
void SetText(OruGuiBase::KVMap& object, const char* name, std::string_view text);

}  // namespace CryptCliC

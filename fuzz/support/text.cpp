// Conversions for the targets, through the public functions of the library.
#include "fuzz/support/text.h"

#include "foundation/encoding.h"
#include "foundation/json.h"

namespace Fuzz {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::Blob;
using OruGuiBase::Val;

AnsiStr Ansi(std::string_view text) {
  return AnsiStr(text);
}

std::string Str(const AnsiStr& text) {
  return std::string(text.View());
}

std::string Str(const Blob& bytes) {
  if (bytes.IsEmpty()) return {};
  return std::string(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
}

std::string_view View(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

Array<Val> Strings(std::initializer_list<std::string_view> texts) {
  Array<Val> array;
  for (const std::string_view text : texts) array.Append(Val(Ansi(text)));
  return array;
}

bool DecodeBase64(std::string_view text, std::string& bytes, const char* ignored) {
  bytes.assign(text.size(), '\0');
  auto size = static_cast<std::uint32_t>(bytes.size());
  if (!OruGuiBase::B64Str2Binary(Ansi(text), bytes.data(), size, ignored)) return false;
  bytes.resize(size);
  return true;
}

Val ParseJson(std::string_view text) {
  Val value;
  AnsiStr error;
  OruGuiBase::JSON2Val(Ansi(text), value, error);
  return value;
}

std::string JsonText(const Val& value) {
  AnsiStr text;
  AnsiStr error;
  OruGuiBase::Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true);
  return Str(text);
}

}  // namespace Fuzz

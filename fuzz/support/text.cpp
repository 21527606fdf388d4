#include "fuzz/support/text.h"

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

Val ParseJson(std::string_view text) {
  Val value;
  AnsiStr error;
  OruGuiBase::JSON2Val(Ansi(text), value, error);
  return value;
}

std::string JsonText(const Val& value) {
  AnsiStr text;
  AnsiStr error;
  OruGuiBase::Val2JSON(value, text, error, false, true);
  return Str(text);
}

}  // namespace Fuzz

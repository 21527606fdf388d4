#include "tests/support/text.h"

#include <gtest/gtest.h>

#include "foundation/encoding.h"
#include "foundation/json.h"

namespace TestSupport {

using OruGuiBase::AnsiStr;
using OruGuiBase::Val;

std::string JsonText(const Val& value) {
  AnsiStr text;
  AnsiStr error;
  if (!OruGuiBase::Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true))
    ADD_FAILURE() << "no JSON: " << error.View();
  return Str(text);
}

std::string JsonText(const OruGuiBase::KVMap& map) {
  return JsonText(Val(map));
}

OruGuiBase::KVMap Map(std::string_view json) {
  Val value;
  AnsiStr error;
  if (!OruGuiBase::JSON2Val(Ansi(json), value, error)) ADD_FAILURE() << "bad JSON: " << error.View();
  return value.AsMap();
}

OruGuiBase::Array<Val> Strings(std::initializer_list<std::string_view> texts) {
  OruGuiBase::Array<Val> array;
  for (const std::string_view text : texts) array.Append(Val(Ansi(text)));
  return array;
}

std::string Quoted(std::string_view text) {
  return JsonText(Val(Ansi(text)));
}

OruGuiBase::Blob Bytes(std::string_view bytes) {
  return OruGuiBase::Blob(OruGuiBase::BlobConst{reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                                static_cast<std::uint32_t>(bytes.size())});
}

std::string Str(const OruGuiBase::Blob& bytes) {
  if (bytes.IsEmpty()) return "";
  return std::string(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
}

std::string ToBase64(std::string_view bytes) {
  return Str(OruGuiBase::Binary2B64Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 0, "\r\n"));
}

std::string FromBase64(std::string_view text) {
  std::string bytes(text.size(), '\0');
  auto size = static_cast<std::uint32_t>(bytes.size());
  if (!OruGuiBase::B64Str2Binary(Ansi(text), bytes.data(), size, "\r\n"))
    ADD_FAILURE() << "bad base64: " << text;
  bytes.resize(size);
  return bytes;
}

}  // namespace TestSupport

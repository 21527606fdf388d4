// JSON, base64 and certificates of requests and replies. All readers are strict: a client that sends another
// type or an additional member has a mistake that a test should show.
#include "stand/wire.h"

#include <algorithm>

#include "foundation/encoding.h"
#include "foundation/json.h"

namespace CryptStand {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::ValType;

// Checks the type first: reading a value as another type would appear in the trace as an error.
std::optional<Val> ReadType(const KVMap& object, const char* name, ValType type) {
  const std::uint32_t index = object.Find(name);
  if (index >= object.GetCount() || object.GetValues()[index].GetType() != type) return std::nullopt;
  return object.GetValues()[index];
}

std::string FromAnsi(const AnsiStr& text) {
  return std::string(text.View());
}

}  // namespace

AnsiStr ToAnsi(std::string_view text) {
  return AnsiStr(text);
}

std::optional<KVMap> ReadObject(const std::string& text) {
  Val value;
  AnsiStr error;
  if (!OruGuiBase::JSON2Val(ToAnsi(text), value, error) || value.GetType() != ValType::Map)
    return std::nullopt;
  return value.AsMap();
}

std::string WriteObject(const KVMap& object) {
  AnsiStr text;
  AnsiStr error;
  OruGuiBase::Val2JSON(Val(object), text, error, /*pretty=*/false, /*strict=*/true);
  return FromAnsi(text);
}

std::optional<std::string> ReadText(const KVMap& object, const char* name) {
  const auto value = ReadType(object, name, ValType::String);
  return value.has_value() ? std::optional(FromAnsi(value->AsString())) : std::nullopt;
}

std::optional<KVMap> ReadMap(const KVMap& object, const char* name) {
  const auto value = ReadType(object, name, ValType::Map);
  return value.has_value() ? std::optional(value->AsMap()) : std::nullopt;
}

std::optional<bool> ReadBool(const KVMap& object, const char* name) {
  const auto value = ReadType(object, name, ValType::Bool);
  return value.has_value() ? std::optional(value->AsBool()) : std::nullopt;
}

std::optional<std::int64_t> ReadInteger(const KVMap& object, const char* name) {
  const auto value = ReadType(object, name, ValType::Integer);
  return value.has_value() ? std::optional(value->AsInteger()) : std::nullopt;
}

std::optional<Array<Val>> ReadArray(const KVMap& object, const char* name) {
  const auto value = ReadType(object, name, ValType::Array);
  return value.has_value() ? std::optional(value->AsArray()) : std::nullopt;
}

std::optional<std::vector<std::string>> ReadTexts(const KVMap& object, const char* name) {
  const auto array = ReadArray(object, name);
  if (!array.has_value()) return std::nullopt;
  std::vector<std::string> texts;
  for (const Val& element : *array) {
    if (element.GetType() != ValType::String) return std::nullopt;
    texts.push_back(FromAnsi(element.AsString()));
  }
  return texts;
}

// Exactly the required members and any of the optional ones. Counting is enough, since names in a map are
// unique.
bool HasMembers(const KVMap& object, std::initializer_list<const char*> required,
                std::initializer_list<const char*> optional) {
  const auto has = [&object](const char* name) { return object.Contains(name); };
  const auto present = static_cast<std::size_t>(std::count_if(optional.begin(), optional.end(), has));
  return std::all_of(required.begin(), required.end(), has) && object.GetCount() == required.size() + present;
}

Val TextVal(std::string_view text) {
  return Val(ToAnsi(text));
}

Val TextsVal(const std::vector<std::string>& texts) {
  Array<Val> array;
  for (const std::string& text : texts) array.Append(TextVal(text));
  return Val(array);
}

std::optional<std::string> FromBase64(std::string_view text) {
  std::string bytes(text.size(), '\0');
  auto size = static_cast<std::uint32_t>(bytes.size());
  if (!OruGuiBase::B64Str2Binary(ToAnsi(text), bytes.data(), size, "\r\n")) return std::nullopt;
  bytes.resize(size);
  return bytes;
}

// PEM or base64 of DER. Bytes after the certificate make it invalid.
Cert CertFromText(const std::string& text) {
  if (text.find("-----BEGIN") != std::string::npos) return Cert::FromPEM(text);
  const auto bytes = FromBase64(text);
  if (!bytes.has_value()) return {};
  const auto* begin = reinterpret_cast<const unsigned char*>(bytes->data());
  const auto* position = begin;
  Cert certificate(d2i_X509(nullptr, &position, static_cast<long>(bytes->size())));
  const bool isWhole = position == begin + bytes->size();
  return isWhole ? certificate : Cert();
}

HttpReply JsonReply(const KVMap& object, int status) {
  HttpReply reply;
  reply.status = status;
  reply.body = WriteObject(object);
  return reply;
}

HttpReply Refusal(int status, std::string_view errorId, std::string_view errorText) {
  KVMap object;
  object.Set("errorid", TextVal(errorId));
  object.Set("errortext", TextVal(errorText));
  return JsonReply(object, status);
}

}  // namespace CryptStand

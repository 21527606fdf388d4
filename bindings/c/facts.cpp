// What can be learned of an operation besides its result. The crypt service's responses name room and group,
// the request for integrity certificates names the group of a signer, and the traces of the thread name what
// the signature says. For operation.cpp, past which all of that comes; room.cpp reads the response about a
// key with the same functions.
#include "bindings/c/facts.h"

#include "bindings/c/text.h"
#include "foundation/json.h"
#include "foundation/val.h"
#include "security/key.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;

namespace {

// The value in "group=[...]", given what comes after the first bracket. Empty if the trace was cut: then it
// does not end in a bracket.
std::string_view UpToLastBracket(std::string_view text) {
  return text.ends_with(']') ? text.substr(0, text.size() - 1) : std::string_view();
}

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

// The class escapes each segment of a path as RFC 3986 has it.
std::string Unescape(std::string_view segment) {
  std::string text;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    const bool isEscape = segment[i] == '%' && i + 2 < segment.size();
    const int high = isEscape ? HexDigit(segment[i + 1]) : -1;
    const int low = isEscape ? HexDigit(segment[i + 2]) : -1;
    if (high >= 0 && low >= 0) {
      text += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      text += segment[i];
    }
  }
  return text;
}

}  // namespace

bool TakePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

std::string MemberOf(const KVMap& object, const char* name) {
  const Val value = object.Get(name);
  return value.GetType() == ValType::String ? ToString(value.AsString()) : std::string();
}

bool IsPlainKey(const AnsiStr& plain) {
  OruOssSec::PrivateKey key(nullptr);
  return !plain.IsEmpty() && key.Load(plain, OruOssSec::ASN1::Encoding::Text);
}

bool IsKeyResponse(const KVMap& response) {
  for (const char* name : {"room", "group", "certificate", "errorid", "errortext"}) {
    if (!MemberOf(response, name).empty()) return true;
  }
  return false;
}

void FactReader::TakeResponse(std::string_view path, const AnsiStr& body) {
  const bool isKey = TakePrefix(path, kKeyPath);
  if (!isKey) {
    const std::size_t end = path.find("/integrity/");
    if (TakePrefix(path, "certlist/") && end != std::string_view::npos) {
      examinedGroup_ = Unescape(path.substr(0, path.find("/integrity/")));
    }
    return;
  }
  Val value;
  AnsiStr error;
  if (!OruGuiBase::JSON2Val(body, value, error)) return;
  facts_.isNoKeyResponse = value.GetType() != ValType::Map || !IsKeyResponse(value.AsMap());
  if (value.GetType() != ValType::Map) return;
  const KVMap object = value.AsMap();
  facts_.serviceRoom = MemberOf(object, "room");
  facts_.serviceGroup = MemberOf(object, "group");
  shownCertificate_ = MemberOf(object, "certificate");
  facts_.isPlainKey = IsPlainKey(object.Get("plain").AsString());
  const std::string errorId = MemberOf(object, "errorid");
  facts_.isKeyRefused = errorId == kKeyRefused;
  facts_.isRoomDenied = !facts_.isKeyRefused && (!errorId.empty() || !MemberOf(object, "errortext").empty());
}

void FactReader::TakeTrace(std::string_view text) {
  // Each signer's traces begin with its group.
  if (TakePrefix(text, "CryptClient::DecryptFile: group=[")) {
    facts_.signers.emplace_back();
    facts_.signers.back().group = UpToLastBracket(text);
    examinedGroup_.clear();
  } else if (facts_.signers.empty()) {
    return;
  } else if (TakePrefix(text, "CryptClient::DecryptFile: room=[")) {
    facts_.signers.back().room = UpToLastBracket(text);
  } else if (TakePrefix(text, "CryptClient::DecryptFile: roomurl=[")) {
    facts_.signers.back().roomUrl = UpToLastBracket(text);
  } else if (TakePrefix(text, "CryptClient::Decrypt: certchain = ")) {
    // The chain is checked after the group's certificates were requested. That request names the group that
    // they belong to, decoded and whole.
    facts_.signers.back().group = examinedGroup_;
    facts_.chain.emplace_back(text);
  }
}

}  // namespace CryptCliC

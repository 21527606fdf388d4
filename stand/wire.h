#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/kvmap.h"
#include "foundation/text_checks.h"
#include "foundation/val.h"
#include "stand/cert_maker.h"
#include "stand/http.h"

// JSON objects, base64 and certificates as requests and replies contain them, read strictly.
namespace CryptStand {

using OruGuiBase::KVMap;
using OruGuiBase::Val;

OruGuiBase::AnsiStr ToAnsi(std::string_view text);
using OruGuiBase::IsUtf8;

/// Parses JSON; none unless it is a valid object.
std::optional<KVMap> ReadObject(const std::string& text);
std::string WriteObject(const KVMap& object);

/// A member of the type in the function's name; none if it is missing or of another type.
std::optional<std::string> ReadText(const KVMap& object, const char* name);
std::optional<KVMap> ReadMap(const KVMap& object, const char* name);
std::optional<bool> ReadBool(const KVMap& object, const char* name);
std::optional<std::int64_t> ReadInteger(const KVMap& object, const char* name);
std::optional<OruGuiBase::Array<Val>> ReadArray(const KVMap& object, const char* name);
/// An array of strings; none if any element is of another type.
std::optional<std::vector<std::string>> ReadTexts(const KVMap& object, const char* name);

/// Whether the object has all of `required` and nothing else than these and `optional`.
bool HasMembers(const KVMap& object, std::initializer_list<const char*> required,
                std::initializer_list<const char*> optional = {});

Val TextVal(std::string_view text);
Val TextsVal(const std::vector<std::string>& texts);

/// Strict base64 with padding; line breaks are ignored.
std::optional<std::string> FromBase64(std::string_view text);
/// A certificate from PEM or from base64 DER; empty if it is neither.
Cert CertFromText(const std::string& text);

/// A reply with a JSON object.
HttpReply JsonReply(const KVMap& object, int status = 200);
/// A refusal in JSON: "errorid" and "errortext".
HttpReply Refusal(int status, std::string_view errorId, std::string_view errorText);

}  // namespace CryptStand

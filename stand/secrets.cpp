// The one table of what is secret in an exchange. docs/wire-protocol.md describes the members.
#include "stand/secrets.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace CryptStand {
namespace {

constexpr std::string_view kSecretMembers[] = {
    "authztoken",         // crypt service: allows one command
    "plain",              // crypt service: a room's private key, where the room gives it out
    "plainData",          // decryptResponse: content keys
    "encodedPrivateKey",  // exportWrappedKeyResponse: a room's private key
    "encodedKey",         // importKeyRequest: a private key
    "password",           // importKeyRequest: opens that key
};

// Parts of names, since integrators choose the headers of their own gateways.
constexpr std::string_view kSecretHeaderParts[] = {"authorization", "authztoken", "cookie",
                                                   "token",         "secret",     "password",
                                                   "api-key",       "apikey",     "credential"};

// Replies contain exchanges a few levels down, and JSON itself is limited to 200.
constexpr int kMaxShownDepth = 150;

bool IsSecretMember(std::string_view name) {
  return std::find(std::begin(kSecretMembers), std::end(kSecretMembers), name) != std::end(kSecretMembers);
}

Val Hide(const Val& value, int depth) {
  const auto type = value.GetType();
  if (type != OruGuiBase::ValType::Map && type != OruGuiBase::ValType::Array) return value;
  if (depth >= kMaxShownDepth) return TextVal(kHidden);
  if (type == OruGuiBase::ValType::Map) {
    KVMap shown;
    for (const auto& [name, member] : value.AsMap()) {
      shown.Set(name, IsSecretMember(name.View()) ? TextVal(kHidden) : Hide(member, depth + 1));
    }
    return Val(shown);
  }
  OruGuiBase::Array<Val> shown;
  for (const Val& element : value.AsArray()) shown.Append(Hide(element, depth + 1));
  return Val(shown);
}

}  // namespace

bool IsSecretHeader(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return std::any_of(std::begin(kSecretHeaderParts), std::end(kSecretHeaderParts),
                     [&](std::string_view part) { return lower.find(part) != std::string::npos; });
}

Val HideSecrets(const Val& value) {
  return Hide(value, 0);
}

bool MayHoldSecret(const std::string& body) {
  return body.find("PRIVATE KEY") != std::string::npos ||
         std::any_of(std::begin(kSecretMembers), std::end(kSecretMembers), [&](std::string_view name) {
           return body.find("\"" + std::string(name) + "\"") != std::string::npos;
         });
}

}  // namespace CryptStand

// Finds what is secret in an exchange. Whoever writes a client chooses the names in it, so the rules look for
// parts of names, in any case, and hide too much rather than too little. docs/wire-protocol.md describes the
// members that this environment itself uses.
#include "stand/secrets.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>

#include "stand/http.h"

namespace CryptStand {
namespace {

// Lower case without '-' and '_'; the first ones are parts of what this environment itself uses. None is so
// short that base64 contains it by chance.
constexpr std::string_view kSecretParts[] = {
    "token",       // "authztoken" of the crypt service allows one command
    "plain",       // "plain": a room's private key; "plainData": content keys
    "privatekey",  // "encodedPrivateKey": a room's private key
    "encodedkey",  // "encodedKey" of importKeyRequest: a private key
    "password",    // opens that key
    "passwd",     "passphrase", "secret", "authorization", "cookie", "apikey", "credential",
};

// Replies contain exchanges a few levels down, and JSON itself is limited to 200.
constexpr int kMaxShownDepth = 150;

char Lower(char letter) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

std::string LowerOf(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
  return lower;
}

// What separates the words of a name has no meaning: "api-key" is "apiKey".
std::string PlainNameOf(std::string_view name) {
  std::string plain = LowerOf(name);
  std::erase_if(plain, [](char letter) { return letter == '-' || letter == '_'; });
  return plain;
}

bool IsSecretName(std::string_view name) {
  const std::string plain = PlainNameOf(name);
  return std::any_of(std::begin(kSecretParts), std::end(kSecretParts),
                     [&](std::string_view part) { return plain.find(part) != std::string::npos; });
}

// Whether a name goes on here and its value follows: `token=`, `"token" :`, `'token':`, `<token>`, and the
// same inside a string of JSON (`\"token\":`) or escaped for a URL (`token%3D`).
bool IsBeforeValue(std::string_view text) {
  constexpr std::size_t kLongestRest = 64;  // of a name; runs of base64 are longer
  std::size_t i = 0;
  while (i < text.size() && i < kLongestRest && std::isalnum(static_cast<unsigned char>(text[i])) != 0) ++i;
  const std::size_t end = text.find_first_not_of("\"'\\ \t\r\n", i);
  return end != std::string_view::npos && std::string_view(":=>%").find(text[end]) != std::string_view::npos;
}

bool HasSecretMember(std::string_view plain) {
  return std::any_of(std::begin(kSecretParts), std::end(kSecretParts), [&](std::string_view part) {
    for (std::size_t at = plain.find(part); at != std::string_view::npos; at = plain.find(part, at + 1)) {
      if (IsBeforeValue(plain.substr(at + part.size()))) return true;
    }
    return false;
  });
}

// "\u0074oken", "%74oken": letters that are escaped without need, which hides names from a search.
bool HasEscapedLetter(std::string_view lower, std::string_view escape) {
  for (std::size_t at = lower.find(escape); at != std::string_view::npos; at = lower.find(escape, at + 1)) {
    const std::string digits(lower.substr(at + escape.size(), 2));
    char* end = nullptr;
    const long code = std::strtol(digits.c_str(), &end, 16);
    if (end == digits.c_str() + 2 && code < 0x80 && std::isalpha(static_cast<int>(code)) != 0) return true;
  }
  return false;
}

Val Hide(const Val& value, int depth) {
  const auto type = value.GetType();
  if (type == OruGuiBase::ValType::String) {
    return MayHoldSecret(std::string(value.AsString().View())) ? TextVal(kHidden) : value;
  }
  if (type != OruGuiBase::ValType::Map && type != OruGuiBase::ValType::Array) return value;
  if (depth >= kMaxShownDepth) return TextVal(kHidden);
  if (type == OruGuiBase::ValType::Map) {
    KVMap shown;
    for (const auto& [name, member] : value.AsMap()) {
      const std::string text(name.View());
      shown.Set(MayHoldSecret(text) ? kHidden : text.c_str(),
                IsSecretName(text) ? TextVal(kHidden) : Hide(member, depth + 1));
    }
    return Val(shown);
  }
  OruGuiBase::Array<Val> shown;
  for (const Val& element : value.AsArray()) shown.Append(Hide(element, depth + 1));
  return Val(shown);
}

// "name=value" of a query. An escape that is malformed may be read in any way, so nothing of it is shown.
std::string HideInQueryMember(std::string_view member) {
  HttpRequest request;
  request.target = "?" + std::string(member);
  const auto read = request.QueryMembers();
  if (!read.has_value()) return kHidden;
  for (const auto& [name, value] : *read) {
    const std::string text(name.View());
    if (MayHoldSecret(text)) return kHidden;
    if (!IsSecretName(text) && !MayHoldSecret(std::string(value.AsString().View()))) continue;
    return std::string(member.substr(0, member.find('='))) + "=" + kHidden;
  }
  return std::string(member);
}

bool MayPathHoldSecret(const std::string& path) {
  HttpRequest request;
  request.target = path;
  const auto segments = request.PathSegments();
  return MayHoldSecret(path) || !segments.has_value() ||
         std::any_of(segments->begin(), segments->end(), MayHoldSecret);
}

}  // namespace

bool IsSecretHeader(const std::string& name) {
  const std::string plain = PlainNameOf(name);
  return IsSecretName(name) || plain.starts_with("xauth") || plain.ends_with("signature") ||
         plain.find("session") != std::string::npos;
}

bool IsSecretHeaderValue(const std::string& name, const std::string& value) {
  const bool hasFragment = LowerOf(name) == "referer" && value.find('#') != std::string::npos;
  return hasFragment || MayHoldSecret(value);
}

Val HideSecrets(const Val& value) {
  return Hide(value, 0);
}

std::string HideInTarget(const std::string& target) {
  const std::size_t mark = std::min(target.find('?'), target.size());
  const std::string path = target.substr(0, mark);
  std::string shown = MayPathHoldSecret(path) ? kHidden : path;
  std::string_view query = std::string_view(target).substr(mark);
  while (!query.empty()) {
    shown += query.front();  // the mark, or what separates members
    query.remove_prefix(1);
    const std::string_view member = query.substr(0, query.find_first_of("&;"));
    shown += HideInQueryMember(member);
    query.remove_prefix(member.size());
  }
  return shown;
}

bool MayHoldSecret(const std::string& text) {
  const std::string lower = LowerOf(text);
  return lower.find('\0') != std::string::npos || lower.find("private key") != std::string::npos ||
         HasEscapedLetter(lower, "\\u00") || HasEscapedLetter(lower, "%") ||
         HasSecretMember(PlainNameOf(lower));
}

}  // namespace CryptStand

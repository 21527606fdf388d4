// getKeyRequest and signRequest: the certificate of a group's integrity key, and signatures with it or with
// an imported key. Clients need both to protect a file.
#include <algorithm>
#include <iterator>
#include <optional>

#include "stand/key_handle.h"

namespace CryptStand {
namespace {

struct Algorithm {
  const char* name;
  const char* digest;
  std::size_t hashSize;
};

constexpr Algorithm kAlgorithms[] = {
    {"RSASSA-PKCS1-v1_5-SHA-256", kSHA256, 32},
    {"RSASSA-PKCS1-v1_5-SHA-384", kSHA384, 48},
    {"RSASSA-PKCS1-v1_5-SHA-512", kSHA512, 64},
};

const Algorithm* FindAlgorithm(const std::string& name) {
  const auto* found = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                   [&](const Algorithm& algorithm) { return name == algorithm.name; });
  return found != std::end(kAlgorithms) ? found : nullptr;
}

// An integrity key of the group that the token's room belongs to.
std::optional<IntegrityKeyRecord> FindIntegrityKey(const CommandContext& context, const Handle& handle) {
  const auto group = context.realm.rooms.FindGroup(context.claim.id);
  if (!group.has_value() || handle.id != kIntegrityId) return std::nullopt;
  return context.realm.rooms.FindIntegrityKey(*group, handle.subId);
}

// Success or the code of the refusal.
Code SignAll(const std::vector<std::string>& hashes, const KeyPair& key, const Algorithm& algorithm,
             std::vector<std::string>& signatures) {
  for (const std::string& text : hashes) {
    const auto hash = FromBase64(text);
    if (!hash.has_value()) return Code::InvalidBase64;

    if (hash->size() != algorithm.hashSize) return Code::InvalidPayload;
    const std::string signature = key.SignHash(*hash, algorithm.digest);
    if (signature.empty()) return Code::KeystoreUnavailable;
    signatures.push_back(ToBase64(signature));
  }
  return Code::Success;
}

}  // namespace

CommandResult GetKey(const CommandContext& context) {
  Handle handle;
  const Code code = ReadHandle(context.payload, "key", handle);
  if (code != Code::Success) return CommandResult::Refuse(code, "key");
  if (!HasMembers(context.payload, {"type", "key", "representation"}) ||
      ReadText(context.payload, "representation") != "certificate") {
    return CommandResult::Refuse(Code::InvalidPayload, "representation");
  }
  const auto key = FindIntegrityKey(context, handle);
  if (!key.has_value()) return CommandResult::Refuse(Code::KeyNotFound, "no such key");
  KVMap object;
  object.Set("type", "certificate");
  object.Set("id", TextVal(handle.id));
  object.Set("subId", TextVal(key->subId));
  object.Set("encodedCertificate", TextVal(key->identity.certificate.ToBase64()));
  CommandResult result;
  result.members.Set("key", Val(object));
  return result;
}

CommandResult SignHashes(const CommandContext& context) {
  Handle handle;
  const Code code = ReadHandle(context.payload, "signatureKey", handle);
  if (code != Code::Success) return CommandResult::Refuse(code, "signatureKey");
  const auto hashes = ReadTexts(context.payload, "hashesToBeSigned");
  if (!HasMembers(context.payload, {"type", "signatureKey", "algorithm", "hashesToBeSigned"}) || !hashes ||
      hashes->empty() || !ReadText(context.payload, "algorithm")) {
    return CommandResult::Refuse(Code::InvalidPayload, "members of signRequest");
  }
  if (!IsFor(context.claim, handle)) {
    return CommandResult::Refuse(Code::AuthFailed, "token for another key");
  }
  const Algorithm* algorithm = FindAlgorithm(*ReadText(context.payload, "algorithm"));
  if (algorithm == nullptr) return CommandResult::Refuse(Code::UnsupportedAlgorithm, "algorithm");
  const auto group = context.realm.rooms.FindGroup(context.claim.id);
  const auto key = context.realm.rooms.FindKey(group.value_or(""), handle.id, handle.subId);
  if (!key.has_value()) return CommandResult::Refuse(Code::KeyNotFound, "no such key");
  std::vector<std::string> signatures;
  const Code signing = SignAll(*hashes, *key, *algorithm, signatures);
  if (signing != Code::Success) return CommandResult::Refuse(signing, "hashesToBeSigned");
  CommandResult result;
  result.members.Set("signedHashes", TextsVal(signatures));
  return result;
}

}  // namespace CryptStand

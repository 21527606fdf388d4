#include <optional>

#include "stand/commands.h"

namespace CryptStand {
namespace {

constexpr std::size_t kHashSize = 64;  // SHA-512

struct Handle {
  std::string id;
  std::string subId;
};

// The handle in a member of the payload. Success or the code of the refusal.
Code ReadHandle(const KVMap& payload, const char* name, Handle& handle) {
  const auto object = ReadMap(payload, name);
  if (!object.has_value() || !HasMembers(*object, {"type", "id", "subId"})) return Code::InvalidPayload;
  const auto id = ReadText(*object, "id");
  const auto subId = ReadText(*object, "subId");
  if (!id.has_value() || !subId.has_value()) return Code::InvalidPayload;
  if (ReadText(*object, "type") != "handle") return Code::InvalidKeyType;
  handle = {*id, *subId};
  return Code::Success;
}

// An integrity key of the group that the token's room belongs to. An empty sub-identifier finds the one in
// use where `allowCurrent` says so.
std::optional<IntegrityKeyRecord> FindKey(const CommandContext& context, const Handle& handle,
                                          bool allowCurrent) {
  const auto group = context.realm.rooms.FindGroup(context.claim.id);
  if (!group.has_value() || handle.id != "integrity") return std::nullopt;
  const auto keys = context.realm.rooms.GetIntegrityKeys(*group);
  if (handle.subId.empty() && allowCurrent && !keys.empty()) return keys.back();
  for (const IntegrityKeyRecord& key : keys) {
    if (key.subId == handle.subId) return key;
  }
  return std::nullopt;
}

// Success or the code of the refusal.
Code SignAll(const std::vector<std::string>& hashes, const KeyPair& key,
             std::vector<std::string>& signatures) {
  for (const std::string& text : hashes) {
    const auto hash = FromBase64(text);
    if (!hash.has_value()) return Code::InvalidBase64;
    if (hash->size() != kHashSize) return Code::InvalidPayload;
    const std::string signature = key.SignHash(*hash, kSHA512);
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
  const auto key = FindKey(context, handle, true);
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
  if (context.claim.keyId != handle.id || context.claim.keySubId != handle.subId) {
    return CommandResult::Refuse(Code::AuthFailed, "token for another key");
  }
  if (ReadText(context.payload, "algorithm") != "RSASSA-PKCS1-v1_5-SHA-512") {
    return CommandResult::Refuse(Code::UnsupportedAlgorithm, "algorithm");
  }
  const auto key = FindKey(context, handle, false);
  if (!key.has_value()) return CommandResult::Refuse(Code::KeyNotFound, "no such key");
  std::vector<std::string> signatures;
  const Code signing = SignAll(*hashes, key->identity.key, signatures);
  if (signing != Code::Success) return CommandResult::Refuse(signing, "hashesToBeSigned");
  CommandResult result;
  result.members.Set("signedHashes", TextsVal(signatures));
  return result;
}

}  // namespace CryptStand

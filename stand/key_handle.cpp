// Handles of keys in payloads. Called by the commands that use or delete a key of a group.
#include "stand/key_handle.h"

namespace CryptStand {

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

bool IsFor(const TokenClaim& claim, const Handle& handle) {
  return claim.keyId == handle.id && claim.keySubId == handle.subId;
}

}  // namespace CryptStand

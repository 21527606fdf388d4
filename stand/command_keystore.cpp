// importKeyRequest and deleteKeyRequest: keys that users put into the key store of a group and remove again.
// signRequest uses them.
#include "stand/group_command.h"
#include "stand/key_handle.h"
#include "stand/key_reader.h"

namespace CryptStand {
namespace {

Code CodeOf(KeyReading reading) {
  switch (reading) {
    case KeyReading::Good:
      return Code::Success;
    case KeyReading::NotBase64:
      return Code::InvalidBase64;
    case KeyReading::NotAKey:
      return Code::InvalidKeyType;
    case KeyReading::WrongPassword:
      break;
  }
  return Code::AuthFailed;
}

}  // namespace

CommandResult ImportKey(const CommandContext& context) {
  const KVMap& payload = context.payload;
  const auto id = ReadText(payload, "id");
  const auto text = ReadText(payload, "encodedKey");
  const auto password = ReadText(payload, "password");
  if (!HasMembers(payload, {"type", "groupId", "id", "encodedKey", "password"}) || !id || id->empty() ||
      !text || !password) {
    return CommandResult::Refuse(Code::InvalidPayload, "members of importKeyRequest");
  }
  std::string group;
  const Code found = ReadGroup(context, group);
  if (found != Code::Success) return CommandResult::Refuse(found, "groupId");
  KeyPair key;
  const Code reading = CodeOf(ReadPrivateKey(*text, *password, key));
  if (reading != Code::Success) return CommandResult::Refuse(reading, "encodedKey");
  if (!context.realm.rooms.ImportKey(group, *id, key))
    return CommandResult::Refuse(Code::KeystoreUnavailable, "the key cannot be kept");
  return {};
}

CommandResult DeleteKey(const CommandContext& context) {
  Handle handle;
  const Code code = ReadHandle(context.payload, "key", handle);
  if (code != Code::Success) return CommandResult::Refuse(code, "key");
  if (!HasMembers(context.payload, {"type", "groupId", "key"}))
    return CommandResult::Refuse(Code::InvalidPayload, "members of deleteKeyRequest");
  std::string group;
  const Code found = ReadGroup(context, group);
  if (found != Code::Success) return CommandResult::Refuse(found, "groupId");
  if (!IsFor(context.claim, handle)) return CommandResult::Refuse(Code::AuthFailed, "token for another key");
  if (!context.realm.rooms.DeleteKey(group, handle.id, handle.subId))
    return CommandResult::Refuse(Code::KeyNotFound, "no such key");
  return {};
}

}  // namespace CryptStand

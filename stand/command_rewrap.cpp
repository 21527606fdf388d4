// modifyWrappedKeyRequest and exportWrappedKeyRequest: a wrapped room key for other readers, and the room's
// private key in the clear.
#include "stand/encryption_keys.h"

namespace CryptStand {
namespace {

// Opens the wrapped room key in a payload. Success or the code of the refusal.
Code OpenWrappedKey(const CommandContext& context, std::optional<RoomKeyPair>& roomKey) {
  const auto wrapped = ReadText(context.payload, "encodedWrappedKey");
  if (!wrapped.has_value()) return Code::InvalidPayload;
  roomKey = context.realm.rooms.OpenKey(*wrapped);
  return roomKey.has_value() ? Code::Success : Code::InvalidWrappedKey;
}

}  // namespace

CommandResult ModifyWrappedKey(const CommandContext& context) {
  if (!HasMembers(context.payload, {"type", "encodedWrappedKey", "encryptionKeys"}))
    return CommandResult::Refuse(Code::InvalidPayload, "members of modifyWrappedKeyRequest");
  std::vector<Cert> readers;
  const Code readersCode = ReadEncryptionKeys(context.payload, readers);
  if (readersCode != Code::Success) return CommandResult::Refuse(readersCode, "encryptionKeys");
  std::optional<RoomKeyPair> roomKey;
  const Code opening = OpenWrappedKey(context, roomKey);
  if (opening != Code::Success) return CommandResult::Refuse(opening, "encodedWrappedKey");
  const std::string wrapped = context.realm.rooms.WrapKey(context.claim.id, *roomKey, readers);
  if (wrapped.empty())
    return CommandResult::Refuse(Code::InvalidCertificate, "a certificate cannot wrap a key");
  CommandResult result;
  result.members.Set("encodedWrappedKey", TextVal(wrapped));
  return result;
}

CommandResult ExportWrappedKey(const CommandContext& context) {
  if (!HasMembers(context.payload, {"type", "encodedWrappedKey"}))
    return CommandResult::Refuse(Code::InvalidPayload, "members of exportWrappedKeyRequest");
  std::optional<RoomKeyPair> roomKey;
  const Code opening = OpenWrappedKey(context, roomKey);
  if (opening != Code::Success) return CommandResult::Refuse(opening, "encodedWrappedKey");
  CommandResult result;
  result.members.Set("encodedPrivateKey", TextVal(roomKey->key.ToBase64()));
  return result;
}

}  // namespace CryptStand

// generateWrappedKeyRequest: the key server generates a room key, certifies it and wraps it for the members
// of the room. Only the wrapped form leaves the server.
#include "stand/encryption_keys.h"

namespace CryptStand {
CommandResult GenerateWrappedKey(const CommandContext& context) {
  const KVMap& payload = context.payload;
  if (!HasMembers(payload, {"type", "keyType", "certificateSubject", "encryptionKeys"})) {
    return CommandResult::Refuse(Code::InvalidPayload, "members of generateWrappedKeyRequest");
  }
  if (ReadText(payload, "keyType") != "")
    return CommandResult::Refuse(Code::InvalidKeyType, "keyType is not empty");
  // The certificate is for the room of the token in any case: another subject is a mistake of the client.
  if (ReadText(payload, "certificateSubject") != "CN=" + RoomKeyName(context.claim.id)) {
    return CommandResult::Refuse(Code::InvalidPayload, "certificateSubject is not that of the token's room");
  }
  std::vector<Cert> readers;
  const Code readersCode = ReadEncryptionKeys(payload, readers);
  if (readersCode != Code::Success) return CommandResult::Refuse(readersCode, "encryptionKeys");

  const Identity signer = context.realm.authority.Get(Role::InnerSigning);
  // A new key even in an environment that shares keys: a renewed room key must differ from the earlier one.
  const KeyPair key = KeyPair::MakeRSA();
  if (key.IsEmpty()) return CommandResult::Refuse(Code::KeyGenerationError, "no key");
  CertSpec spec = RoomKeySpec(context.claim.id);
  spec.serial = context.realm.authority.MakeSerial("Key of room " + context.claim.id);
  const RoomKeyPair roomKey{Cert::Issue(spec, key, signer), key};
  if (roomKey.certificate.IsEmpty()) return CommandResult::Refuse(Code::CAError, "no certificate");
  const std::string wrapped = context.realm.rooms.WrapKey(context.claim.id, roomKey, readers);
  if (wrapped.empty())
    return CommandResult::Refuse(Code::InvalidCertificate, "a certificate cannot wrap a key");

  CommandResult result;
  result.members.Set("encodedX509Certificate", TextVal(roomKey.certificate.ToBase64()));
  result.members.Set("encodedWrappedKey", TextVal(wrapped));
  return result;
}

}  // namespace CryptStand

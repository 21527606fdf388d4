#include "stand/commands.h"
#include "stand/rooms.h"
#include "stand/wrappedkey.h"

namespace CryptStand {
namespace {

// Reads the certificates that shall be able to open the key as well. Success or the code of the refusal.
Code ReadReaders(const KVMap& payload, std::vector<Cert>& readers) {
  const auto entries = ReadArray(payload, "encryptionKeys");
  if (!entries.has_value()) return Code::InvalidPayload;
  for (const Val& entry : *entries) {
    if (entry.GetType() != OruGuiBase::ValType::Map) return Code::InvalidPayload;
    const KVMap object = entry.AsMap();
    const auto text = ReadText(object, "encodedCertificate");
    if (!HasMembers(object, {"type", "encodedCertificate"}) || !text.has_value()) return Code::InvalidPayload;
    if (ReadText(object, "type") != "externalCertificate") return Code::InvalidKeyType;
    readers.push_back(CertFromText(*text));
    if (readers.back().IsEmpty()) return Code::InvalidCertificate;
  }
  return Code::Success;
}

}  // namespace

CommandResult GenerateWrappedKey(const CommandContext& context) {
  const KVMap& payload = context.payload;
  if (!HasMembers(payload, {"type", "keyType", "certificateSubject", "encryptionKeys"})) {
    return CommandResult::Refuse(Code::InvalidPayload, "members of generateWrappedKeyRequest");
  }
  if (ReadText(payload, "keyType") != "")
    return CommandResult::Refuse(Code::InvalidKeyType, "keyType is not empty");
  const std::string commonName = context.claim.id + "-tr";
  if (ReadText(payload, "certificateSubject") != "CN=" + commonName) {
    return CommandResult::Refuse(Code::InvalidPayload, "certificateSubject is not that of the token's room");
  }
  std::vector<Cert> readers;
  const Code readersCode = ReadReaders(payload, readers);
  if (readersCode != Code::Success) return CommandResult::Refuse(readersCode, "encryptionKeys");

  const Identity signer = context.realm.authority.Get(Role::InnerSigning);
  const Cert wrapping = context.realm.authority.Get(Role::Wrapping).certificate;
  const KeyPair key = KeyPair::MakeRSA();
  if (key.IsEmpty()) return CommandResult::Refuse(Code::KeyGenerationError, "no key");
  const RoomKeyPair roomKey{Cert::Issue(RoomKeySpec(commonName), key, signer), key};
  if (roomKey.certificate.IsEmpty()) return CommandResult::Refuse(Code::CAError, "no certificate");
  const std::string wrapped = WrapRoomKey(roomKey, signer, wrapping, readers);
  if (wrapped.empty())
    return CommandResult::Refuse(Code::InvalidCertificate, "a certificate cannot wrap a key");

  CommandResult result;
  result.members.Set("encodedX509Certificate", TextVal(roomKey.certificate.ToBase64()));
  result.members.Set("encodedWrappedKey", TextVal(wrapped));
  return result;
}

}  // namespace CryptStand

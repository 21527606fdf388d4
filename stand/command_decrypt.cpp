// decryptRequest: the key server opens a wrapped room key and decrypts content keys with it. The room's
// private key never leaves the server here.
#include "stand/commands.h"
#include "stand/rooms.h"

namespace CryptStand {
namespace {

// Reads the wrapped key, still encoded. Success or the code of the refusal.
Code ReadWrappedKey(const KVMap& payload, std::string& text) {
  const auto object = ReadMap(payload, "decryptionKey");
  if (!object.has_value() || !HasMembers(*object, {"type", "encodedWrappedKey"})) return Code::InvalidPayload;
  const auto data = ReadText(*object, "encodedWrappedKey");
  if (!data.has_value()) return Code::InvalidPayload;
  if (ReadText(*object, "type") != "wrappedKey") return Code::InvalidKeyType;
  text = *data;
  return Code::Success;
}

// A damaged block has the same code as any malformed payload, only the event log distinguishes them.
// Success or the code of the refusal.
Code DecryptAll(const std::vector<std::string>& blocks, const KeyPair& key, std::vector<std::string>& plain) {
  for (const std::string& text : blocks) {
    const auto block = FromBase64(text);
    if (!block.has_value()) return Code::InvalidBase64;
    const std::string content = key.Decrypt(*block);
    if (content.empty()) return Code::InvalidPayload;
    plain.push_back(ToBase64(content));
  }
  return Code::Success;
}

}  // namespace

CommandResult DecryptData(const CommandContext& context) {
  std::string wrapped;
  const Code code = ReadWrappedKey(context.payload, wrapped);
  if (code != Code::Success) return CommandResult::Refuse(code, "decryptionKey");
  const auto blocks = ReadTexts(context.payload, "encryptedData");
  const auto algorithm = ReadText(context.payload, "algorithm");
  if (!HasMembers(context.payload, {"type", "decryptionKey", "algorithm", "encryptedData"}) || !blocks ||
      blocks->empty() || !algorithm) {
    return CommandResult::Refuse(Code::InvalidPayload, "members of decryptRequest");
  }
  // The only algorithm that clients send.
  if (*algorithm != "RSAES-PKCS1-v1_5") return CommandResult::Refuse(Code::UnsupportedAlgorithm, "algorithm");
  const auto roomKey = context.realm.rooms.OpenKey(wrapped);
  if (!roomKey.has_value())
    return CommandResult::Refuse(Code::InvalidWrappedKey, "not a wrapped key of ours");
  std::vector<std::string> plain;
  const Code decrypting = DecryptAll(*blocks, roomKey->key, plain);
  if (decrypting != Code::Success) return CommandResult::Refuse(decrypting, "encryptedData");
  CommandResult result;
  result.members.Set("plainData", TextsVal(plain));
  return result;
}

}  // namespace CryptStand

// The certificates for which a command wraps a key. Called by the commands that generate, change or reencrypt
// wrapped keys.
#include "stand/encryption_keys.h"

namespace CryptStand {

Code ReadEncryptionKey(const KVMap& object, Cert& certificate) {
  const auto text = ReadText(object, "encodedCertificate");
  if (!HasMembers(object, {"type", "encodedCertificate"}) || !text.has_value()) return Code::InvalidPayload;
  if (ReadText(object, "type") != "externalCertificate") return Code::InvalidKeyType;
  certificate = CertFromText(*text);
  return certificate.IsEmpty() ? Code::InvalidCertificate : Code::Success;
}

Code ReadEncryptionKeys(const KVMap& payload, std::vector<Cert>& certificates) {
  const auto entries = ReadArray(payload, "encryptionKeys");
  if (!entries.has_value()) return Code::InvalidPayload;
  for (const Val& entry : *entries) {
    if (entry.GetType() != OruGuiBase::ValType::Map) return Code::InvalidPayload;
    const Code code = ReadEncryptionKey(entry.AsMap(), certificates.emplace_back());
    if (code != Code::Success) return code;
  }
  return Code::Success;
}

}  // namespace CryptStand

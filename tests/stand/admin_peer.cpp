#include "tests/stand/admin_peer.h"

namespace CryptStand {

KVMap AdminTest::With(KVMap payload, const char* name, const Val& value) {
  payload.Set(name, value);
  return payload;
}

Val AdminTest::Key(const std::string& certificate, const char* type) {
  return Val(Object("type", type, "encodedCertificate", certificate.c_str()));
}

Val AdminTest::Keys(const std::vector<std::string>& certificates) {
  OruGuiBase::Array<Val> list;
  for (const std::string& certificate : certificates) list.Append(Key(certificate));
  return Val(list);
}

KVMap AdminTest::ConfigPayload(const std::string& group) {
  return Object("type", "configGroupRequest", "groupId", group.c_str(), "groupName", "Group, new",
                "ownerGroupId", "owner", "authnRootCertificates", TextsVal({}), "authnIssuingCertificates",
                TextsVal({}), "authnCrlUrls", TextsVal({}));
}

KVMap AdminTest::ReencryptPayload(const std::string& certificate, const std::string& group) {
  return Object("type", "reencryptRequest", "groupId", group.c_str(), "encryptionKey", Key(certificate));
}

KVMap AdminTest::ImportPayload(const std::string& key, const std::string& password, const std::string& id) {
  return Object("type", "importKeyRequest", "groupId", kGroup, "id", id.c_str(), "encodedKey", key.c_str(),
                "password", password.c_str());
}

KVMap AdminTest::DeletePayload(const std::string& subId, const char* id) {
  return Object("type", "deleteKeyRequest", "groupId", kGroup, "key", Handle(subId, id));
}

KVMap AdminTest::SignWith(const std::string& subId, const char* id, const char* algorithm,
                          const std::string& hash) {
  const std::string bytes = hash.empty() ? std::string(64, 'h') : hash;
  return Object("type", "signRequest", "signatureKey", Handle(subId, id), "algorithm", algorithm,
                "hashesToBeSigned", TextsVal({ToBase64(bytes)}));
}

Reply AdminTest::RunWithKey(const KVMap& payload, const KVMap& handle, const std::string& id) {
  const std::string operation = ReadText(payload, "type").value_or("");
  const KVMap body = Object("keyserver", stand_.GetKeyServerUrls().front().c_str(), "operation",
                            operation.c_str(), "key", handle);
  return PostCommand(payload, Post(Service("crypt/authztoken/" + id), body).Text("authztoken"));
}

Reply AdminTest::Sign(const KVMap& payload) {
  return RunWithKey(payload, *ReadMap(payload, "signatureKey"), "demo");
}

Reply AdminTest::Delete(const KVMap& payload) {
  return RunWithKey(payload, *ReadMap(payload, "key"), kGroup);
}

}  // namespace CryptStand

// The keys of groups: integrity keys, imported keys, and the encryption certificate that every room key of
// the group is wrapped for.
#include <algorithm>
#include <utility>

#include "stand/rooms.h"

namespace CryptStand {
namespace {

bool Contains(const std::vector<Cert>& list, const Cert& certificate) {
  return std::any_of(list.begin(), list.end(),
                     [&](const Cert& other) { return other.ToDER() == certificate.ToDER(); });
}

}  // namespace

std::vector<IntegrityKeyRecord> Rooms::GetIntegrityKeys(const std::string& group) {
  // Under the lock, so that two requests for a new group do not make two first keys.
  const std::lock_guard<std::mutex> lock(integrity_);
  auto keys = store_.GetIntegrityKeys(group);
  if (keys.empty() && AddIntegrityKey(group)) keys = store_.GetIntegrityKeys(group);
  return keys;
}

std::optional<IntegrityKeyRecord> Rooms::FindIntegrityKey(const std::string& group,
                                                          const std::string& subId) {
  const auto keys = GetIntegrityKeys(group);
  if (subId.empty() && !keys.empty()) return keys.back();
  for (const IntegrityKeyRecord& key : keys) {
    if (key.subId == subId) return key;
  }
  return std::nullopt;
}

bool Rooms::RenewIntegrityKey(const std::string& group) {
  const std::lock_guard<std::mutex> lock(integrity_);
  return AddIntegrityKey(group);
}

bool Rooms::AddIntegrityKey(const std::string& group, KeyPair key) {
  const auto subId = store_.HandOutSubId(group, kIntegrityId);
  if (!subId.has_value()) return false;
  CertSpec spec = CertSpec::EndEntity("Integrity " + *subId + " of " + group);
  spec.keyUsage = "critical,digitalSignature";
  spec.validity = KeyValidity();
  spec.serial = authority_.MakeSerial("Integrity key of " + group);
  if (key.IsEmpty()) key = authority_.MakeKey("Integrity " + *subId);
  const Identity identity = Identity::MakeIssued(spec, authority_.Get(Role::Issuing), std::move(key));
  return !identity.certificate.IsEmpty() && store_.AddIntegrityKey(group, *subId, identity);
}

// An imported key with the identifier of integrity keys becomes the group's integrity key and gets a
// certificate. Any other imported key has none.
bool Rooms::ImportKey(const std::string& group, const std::string& id, const KeyPair& key) {
  if (id == kIntegrityId) {
    const std::lock_guard<std::mutex> lock(integrity_);
    return AddIntegrityKey(group, key);
  }
  const auto subId = store_.HandOutSubId(group, id);
  return subId.has_value() && store_.AddImportedKey(group, id, *subId, key);
}

std::optional<KeyPair> Rooms::FindKey(const std::string& group, const std::string& id,
                                      const std::string& subId) {
  if (id != kIntegrityId) return store_.FindImportedKey(group, id, subId);
  const auto key = FindIntegrityKey(group, subId);
  return key.has_value() ? std::optional(key->identity.key) : std::nullopt;
}

bool Rooms::DeleteKey(const std::string& group, const std::string& id, const std::string& subId) {
  return id == kIntegrityId ? store_.DeleteIntegrityKey(group, subId)
                            : store_.DeleteImportedKey(group, id, subId);
}

Cert Rooms::GetEncryptionCertificate(const std::string& group) {
  const auto record = store_.GetGroup(group);
  return record.has_value() ? Cert::FromPEM(record->encryptionCertificate) : Cert();
}

// The group's encryption certificate, if it has one, is a reader whether or not the client named it.
std::string Rooms::WrapKey(const std::string& room, const RoomKeyPair& roomKey, std::vector<Cert> readers) {
  const Cert encryption = GetEncryptionCertificate(FindGroup(room).value_or(""));
  if (!encryption.IsEmpty() && !Contains(readers, encryption)) readers.push_back(encryption);
  return WrapRoomKey(roomKey, authority_.Get(Role::InnerSigning), authority_.Get(Role::Wrapping).certificate,
                     readers);
}

// The readers come from the wrapped key itself; only the former encryption certificate is replaced.
std::string Rooms::Rewrap(const std::string& data, const Cert& former, const Cert& certificate) {
  const auto roomKey = OpenKey(data);
  if (!roomKey.has_value()) return {};
  std::vector<Cert> readers = {certificate};
  for (const Cert& reader : roomKey->readers) {
    const bool isFormer = !former.IsEmpty() && reader.ToDER() == former.ToDER();
    if (!isFormer && !Contains(readers, reader)) readers.push_back(reader);
  }
  return WrapRoomKey(*roomKey, authority_.Get(Role::InnerSigning), authority_.Get(Role::Wrapping).certificate,
                     readers);
}

bool Rooms::Reencrypt(const std::string& group, const Cert& certificate) {
  const std::lock_guard<std::mutex> lock(encryption_);
  const Cert former = GetEncryptionCertificate(group);
  // All keys are wrapped before any is stored: a single one that cannot be wrapped leaves everything as it
  // was.
  std::vector<WrappedKeyRecord> keys = store_.GetWrappedKeys(group);
  for (WrappedKeyRecord& key : keys) {
    key.data = Rewrap(key.data, former, certificate);
    if (key.data.empty()) return false;
  }
  return store_.SetEncryptionCertificate(group, certificate.ToPEM(), keys);
}

}  // namespace CryptStand

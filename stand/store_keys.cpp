// Integrity keys and imported keys in the store. Sub-identifiers come from a counter, so that a deleted one
// is not used again.
#include "stand/store.h"

namespace CryptStand {

std::vector<IntegrityKeyRecord> Store::GetIntegrityKeys(const std::string& group) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<IntegrityKeyRecord> keys;
  auto list = database_.Prepare(
      "SELECT sub_id, certificate, key FROM integrity_keys WHERE group_id = ? ORDER BY number");
  list.Bind(group);
  while (list.Next()) {
    keys.push_back({list.Text(0), {certificates_.Get(list.Text(1)), keys_.Get(list.Text(2))}});
  }
  return keys;
}

bool Store::AddIntegrityKey(const std::string& group, const std::string& subId, const Identity& identity) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto insert = database_.Prepare(
      "INSERT OR IGNORE INTO integrity_keys (group_id, sub_id, certificate, key) VALUES (?, ?, ?, ?)");
  insert.Bind(group).Bind(subId).Bind(identity.certificate.ToPEM());
  return insert.Bind(identity.key.ToPEM()).Run();
}

bool Store::DeleteIntegrityKey(const std::string& group, const std::string& subId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto remove = database_.Prepare("DELETE FROM integrity_keys WHERE group_id = ? AND sub_id = ?");
  return remove.Bind(group).Bind(subId).Run() && database_.Changes() == 1;
}

// In a folder from before there was a counter, it starts after the highest number of its integrity keys.
std::optional<std::string> Store::HandOutSubId(const std::string& group, const std::string& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto next = database_.Prepare(
      "INSERT INTO key_numbers VALUES (?1, ?2, 1 + (SELECT coalesce(max(CAST(sub_id AS INTEGER)), 0) FROM "
      "integrity_keys WHERE group_id = ?1 AND ?2 = 'integrity')) "
      "ON CONFLICT (group_id, id) DO UPDATE SET last = last + 1 RETURNING last");
  if (!next.Bind(group).Bind(id).Next()) return std::nullopt;
  const std::string subId = std::to_string(next.Number(0));
  return next.Run() ? std::optional(subId) : std::nullopt;
}

bool Store::AddImportedKey(const std::string& group, const std::string& id, const std::string& subId,
                           const KeyPair& key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto insert =
      database_.Prepare("INSERT INTO imported_keys (group_id, id, sub_id, key) VALUES (?, ?, ?, ?)");
  return insert.Bind(group).Bind(id).Bind(subId).Bind(key.ToPEM()).Run();
}

std::optional<KeyPair> Store::FindImportedKey(const std::string& group, const std::string& id,
                                              const std::string& subId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare(
      "SELECT key FROM imported_keys WHERE group_id = ?1 AND id = ?2 AND ?3 IN (sub_id, '') "
      "ORDER BY number DESC LIMIT 1");
  if (!find.Bind(group).Bind(id).Bind(subId).Next()) return std::nullopt;
  return keys_.Get(find.Text(0));
}

bool Store::DeleteImportedKey(const std::string& group, const std::string& id, const std::string& subId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto remove = database_.Prepare("DELETE FROM imported_keys WHERE group_id = ? AND id = ? AND sub_id = ?");
  return remove.Bind(group).Bind(id).Bind(subId).Run() && database_.Changes() == 1;
}

}  // namespace CryptStand

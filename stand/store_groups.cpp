// Groups in the store. Their later members are in a table of their own, since folders of earlier versions
// have the table "groups" without them.
#include "stand/store.h"

namespace CryptStand {
namespace {

// The lists of a group, as the column "kind" names them.
constexpr const char* kRoot = "root";
constexpr const char* kIssuing = "issuing";
constexpr const char* kCrlUrl = "crl";

std::vector<std::string> ReadTextsOf(Database& database, const std::string& group, const char* type) {
  std::vector<std::string> texts;
  auto list =
      database.Prepare("SELECT text FROM group_texts WHERE group_id = ? AND kind = ? ORDER BY number");
  list.Bind(group).Bind(type);
  while (list.Next()) texts.push_back(list.Text(0));
  return texts;
}

bool WriteTextsOf(Database& database, const std::string& group, const char* type,
                  const std::vector<std::string>& texts) {
  bool good = database.Prepare("DELETE FROM group_texts WHERE group_id = ? AND kind = ?")
                  .Bind(group)
                  .Bind(type)
                  .Run();
  for (const std::string& text : texts) {
    auto insert = database.Prepare("INSERT INTO group_texts (group_id, kind, text) VALUES (?, ?, ?)");
    good = good && insert.Bind(group).Bind(type).Bind(text).Run();
  }
  return good;
}

}  // namespace

bool Store::AddGroup(const std::string& id, const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Prepare("INSERT OR IGNORE INTO groups VALUES (?, ?)").Bind(id).Bind(name).Run();
}

bool Store::HasGroup(const std::string& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Prepare("SELECT 1 FROM groups WHERE id = ?").Bind(id).Next();
}

std::optional<GroupRecord> Store::GetGroup(const std::string& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare(
      "SELECT name, coalesce(owner, ''), coalesce(encryption_certificate, '') FROM groups "
      "LEFT JOIN group_details ON groups.id = group_details.id WHERE groups.id = ?");
  if (!find.Bind(id).Next()) return std::nullopt;
  GroupRecord group{id, find.Text(0), find.Text(1)};
  group.encryptionCertificate = find.Text(2);
  group.rootCertificates = ReadTextsOf(database_, id, kRoot);
  group.issuingCertificates = ReadTextsOf(database_, id, kIssuing);
  group.crlUrls = ReadTextsOf(database_, id, kCrlUrl);
  return group;
}

// One transaction: a configuration is never half old and half new.
bool Store::ConfigureGroup(const GroupRecord& group) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Transact([&] {
    auto name = database_.Prepare(
        "INSERT INTO groups VALUES (?, ?) ON CONFLICT (id) DO UPDATE SET name = excluded.name");
    auto owner = database_.Prepare(
        "INSERT INTO group_details (id, owner) VALUES (?, ?) ON CONFLICT (id) DO UPDATE SET owner = "
        "excluded.owner");
    return name.Bind(group.id).Bind(group.name).Run() && owner.Bind(group.id).Bind(group.owner).Run() &&
           WriteTextsOf(database_, group.id, kRoot, group.rootCertificates) &&
           WriteTextsOf(database_, group.id, kIssuing, group.issuingCertificates) &&
           WriteTextsOf(database_, group.id, kCrlUrl, group.crlUrls);
  });
}

std::vector<WrappedKeyRecord> Store::GetWrappedKeys(const std::string& group) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<WrappedKeyRecord> keys;
  auto list = database_.Prepare(
      "SELECT number, data FROM room_keys JOIN rooms ON rooms.id = room_keys.room WHERE group_id = ?");
  list.Bind(group);
  while (list.Next()) keys.push_back({list.Number(0), list.Text(1)});
  return keys;
}

// One transaction with all wrapped keys: a key that is wrapped for the former certificate only could not be
// opened with the new one.
bool Store::SetEncryptionCertificate(const std::string& group, const std::string& certificate,
                                     const std::vector<WrappedKeyRecord>& keys) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Transact([&] {
    auto set = database_.Prepare(
        "INSERT INTO group_details (id, encryption_certificate) VALUES (?, ?) ON CONFLICT (id) DO UPDATE SET "
        "encryption_certificate = excluded.encryption_certificate");
    bool good = set.Bind(group).Bind(certificate).Run();
    for (const WrappedKeyRecord& key : keys) {
      auto update = database_.Prepare("UPDATE room_keys SET data = ? WHERE number = ?");
      good = good && update.Bind(key.data).Bind(key.number).Run();
    }
    return good;
  });
}

}  // namespace CryptStand

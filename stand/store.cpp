#include "stand/store.h"

#include <cerrno>
#include <sys/stat.h>
#include <system_error>

namespace CryptStand {
namespace {

constexpr const char* kSchema = R"(
  PRAGMA synchronous = NORMAL;
  CREATE TABLE IF NOT EXISTS identities (
    name TEXT PRIMARY KEY, certificate TEXT NOT NULL, key TEXT NOT NULL);
  CREATE TABLE IF NOT EXISTS groups (id TEXT PRIMARY KEY, name TEXT NOT NULL);
  CREATE TABLE IF NOT EXISTS rooms (
    id TEXT PRIMARY KEY, group_id TEXT NOT NULL, locked INTEGER NOT NULL DEFAULT 0,
    plain_key INTEGER NOT NULL DEFAULT 0, cert_auth INTEGER NOT NULL DEFAULT 0,
    sequence INTEGER NOT NULL DEFAULT 0, sequence_open INTEGER NOT NULL DEFAULT 0);
  CREATE TABLE IF NOT EXISTS room_keys (
    number INTEGER PRIMARY KEY, room TEXT NOT NULL, issuer TEXT NOT NULL, serial TEXT NOT NULL,
    certificate TEXT NOT NULL, data TEXT NOT NULL);
  CREATE INDEX IF NOT EXISTS room_keys_by_room ON room_keys (room, issuer, serial);
  CREATE TABLE IF NOT EXISTS integrity_keys (
    number INTEGER PRIMARY KEY, group_id TEXT NOT NULL, sub_id TEXT NOT NULL, certificate TEXT NOT NULL,
    key TEXT NOT NULL, UNIQUE (group_id, sub_id));
)";

bool MakeFolder(const std::string& folder, std::string& error) {
  if (mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return true;
  error = folder + ": " + std::generic_category().message(errno);
  return false;
}

Identity ReadIdentity(const std::string& certificate, const std::string& key) {
  return {Cert::FromPEM(certificate), KeyPair::FromPEM(key)};
}

std::optional<RoomKeyRecord> ReadRoomKey(Statement statement) {
  if (!statement.Next()) return std::nullopt;
  return RoomKeyRecord{statement.Text(0), statement.Text(1)};
}

}  // namespace

bool Store::Open(const std::string& folder, std::string& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!folder.empty() && !MakeFolder(folder, error)) return false;
  return database_.Open(folder.empty() ? folder : folder + "/stand.sqlite", error) &&
         database_.Execute(kSchema, error);
}

std::optional<Identity> Store::GetIdentity(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare("SELECT certificate, key FROM identities WHERE name = ?");
  if (!find.Bind(name).Next()) return std::nullopt;
  return ReadIdentity(find.Text(0), find.Text(1));
}

std::optional<Identity> Store::KeepIdentity(const std::string& name, const Identity& identity) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto insert = database_.Prepare("INSERT OR IGNORE INTO identities VALUES (?, ?, ?)");
    insert.Bind(name).Bind(identity.certificate.ToPEM()).Bind(identity.key.ToPEM());
    if (!insert.Run()) return std::nullopt;
  }
  return GetIdentity(name);
}

bool Store::AddGroup(const std::string& id, const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Prepare("INSERT OR IGNORE INTO groups VALUES (?, ?)").Bind(id).Bind(name).Run();
}

bool Store::HasGroup(const std::string& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Prepare("SELECT 1 FROM groups WHERE id = ?").Bind(id).Next();
}

bool Store::AddRoom(const std::string& id, const std::string& group) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto insert = database_.Prepare("INSERT OR IGNORE INTO rooms (id, group_id) VALUES (?, ?)");
  return insert.Bind(id).Bind(group).Run();
}

std::optional<RoomRecord> Store::GetRoom(const std::string& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare("SELECT group_id, locked, plain_key, cert_auth FROM rooms WHERE id = ?");
  if (!find.Bind(id).Next()) return std::nullopt;
  return RoomRecord{id, find.Text(0), {find.Number(1) != 0, find.Number(2) != 0, find.Number(3) != 0}};
}

std::vector<std::string> Store::GetRooms() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> rooms;
  auto list = database_.Prepare("SELECT id FROM rooms ORDER BY rowid");
  while (list.Next()) rooms.push_back(list.Text(0));
  return rooms;
}

bool Store::SetRoomOptions(const std::string& id, const RoomOptions& options) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto update = database_.Prepare("UPDATE rooms SET locked = ?, plain_key = ?, cert_auth = ? WHERE id = ?");
  update.Bind(std::int64_t{options.locked}).Bind(std::int64_t{options.plainKey});
  return update.Bind(std::int64_t{options.certAuth}).Bind(id).Run() && database_.Changes() == 1;
}

std::optional<std::string> Store::HandOutSequence(const std::string& room) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto update = database_.Prepare(
      "UPDATE rooms SET sequence = sequence + 1, sequence_open = 1 WHERE id = ? RETURNING sequence");
  if (!update.Bind(room).Next()) return std::nullopt;
  const std::string sequence = std::to_string(update.Number(0));
  if (!update.Run()) return std::nullopt;
  return sequence;
}

Upload Store::UploadRoomKey(const std::string& room, const std::string& sequence, const Cert& certificate,
                            const std::string& data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string error;
  if (!database_.Execute("BEGIN IMMEDIATE", error)) return Upload::Failed;
  auto close = database_.Prepare(
      "UPDATE rooms SET sequence_open = 0 WHERE id = ? AND CAST(sequence AS TEXT) = ? AND sequence_open = 1");
  const bool checked = close.Bind(room).Bind(sequence).Run();
  const bool isCurrent = checked && database_.Changes() == 1;
  auto insert = database_.Prepare(
      "INSERT INTO room_keys (room, issuer, serial, certificate, data) VALUES (?, ?, ?, ?, ?)");
  insert.Bind(room).Bind(certificate.GetIssuer()).Bind(certificate.GetSerial()).Bind(certificate.ToPEM());
  const bool kept = isCurrent && insert.Bind(data).Run();
  if (database_.Execute(kept ? "COMMIT" : "ROLLBACK", error) && kept) return Upload::Done;
  return checked && !isCurrent ? Upload::StaleSequence : Upload::Failed;
}

std::optional<RoomKeyRecord> Store::GetCurrentRoomKey(const std::string& room) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare(
      "SELECT certificate, data FROM room_keys WHERE room = ? ORDER BY number DESC LIMIT 1");
  find.Bind(room);
  return ReadRoomKey(std::move(find));
}

std::optional<RoomKeyRecord> Store::FindRoomKey(const std::string& room, const std::string& issuer,
                                                const std::string& serial) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare(
      "SELECT certificate, data FROM room_keys WHERE room = ? AND issuer = ? AND serial = ?");
  find.Bind(room).Bind(issuer).Bind(serial);
  return ReadRoomKey(std::move(find));
}

bool Store::ReplaceRoomCertificate(const std::string& room, const std::string& certificate) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto update = database_.Prepare(
      "UPDATE room_keys SET certificate = ? WHERE number = (SELECT max(number) FROM room_keys WHERE room = "
      "?)");
  return update.Bind(certificate).Bind(room).Run() && database_.Changes() == 1;
}

std::vector<IntegrityKeyRecord> Store::GetIntegrityKeys(const std::string& group) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<IntegrityKeyRecord> keys;
  auto list = database_.Prepare(
      "SELECT sub_id, certificate, key FROM integrity_keys WHERE group_id = ? ORDER BY number");
  list.Bind(group);
  while (list.Next()) keys.push_back({list.Text(0), ReadIdentity(list.Text(1), list.Text(2))});
  return keys;
}

bool Store::AddIntegrityKey(const std::string& group, const std::string& subId, const Identity& identity) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto insert = database_.Prepare(
      "INSERT OR IGNORE INTO integrity_keys (group_id, sub_id, certificate, key) VALUES (?, ?, ?, ?)");
  insert.Bind(group).Bind(subId).Bind(identity.certificate.ToPEM());
  return insert.Bind(identity.key.ToPEM()).Run();
}

}  // namespace CryptStand

// The store's schema, identities and rooms. Groups, keys and audit records are in store_*.cpp. Every public
// function locks the one mutex, so the database has one user at a time.
#include "stand/store.h"

#include "stand/folder_lock.h"

namespace CryptStand {
namespace {

// Write-ahead logging: a commit is one write without a flush of the disk, and survives the end of the process
// however it ends; only a power failure may lose the last ones. Other programs can read the file meanwhile.
// Columns are never renamed: folders of earlier versions must stay usable.
constexpr const char* kSchema = R"(
  PRAGMA journal_mode = WAL;
  PRAGMA synchronous = NORMAL;
  CREATE TABLE IF NOT EXISTS identities (
    name TEXT PRIMARY KEY, certificate TEXT NOT NULL, key TEXT NOT NULL);
  CREATE TABLE IF NOT EXISTS former_certificates (
    number INTEGER PRIMARY KEY, name TEXT NOT NULL, certificate TEXT NOT NULL);
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
  CREATE TABLE IF NOT EXISTS group_details (
    id TEXT PRIMARY KEY, owner TEXT NOT NULL DEFAULT '', encryption_certificate TEXT NOT NULL DEFAULT '');
  CREATE TABLE IF NOT EXISTS group_texts (
    number INTEGER PRIMARY KEY, group_id TEXT NOT NULL, kind TEXT NOT NULL, text TEXT NOT NULL);
  CREATE INDEX IF NOT EXISTS group_texts_by_group ON group_texts (group_id, kind, number);
  CREATE TABLE IF NOT EXISTS imported_keys (
    number INTEGER PRIMARY KEY, group_id TEXT NOT NULL, id TEXT NOT NULL, sub_id TEXT NOT NULL,
    key TEXT NOT NULL, UNIQUE (group_id, id, sub_id));
  CREATE TABLE IF NOT EXISTS key_numbers (
    group_id TEXT NOT NULL, id TEXT NOT NULL, last INTEGER NOT NULL, PRIMARY KEY (group_id, id));
  CREATE TABLE IF NOT EXISTS serial_numbers (purpose TEXT PRIMARY KEY, last INTEGER NOT NULL);
  CREATE TABLE IF NOT EXISTS audit (
    number INTEGER PRIMARY KEY AUTOINCREMENT, server INTEGER NOT NULL, group_id TEXT NOT NULL,
    time TEXT NOT NULL, operation TEXT NOT NULL, room TEXT NOT NULL, key TEXT NOT NULL,
    outcome TEXT NOT NULL);
  CREATE INDEX IF NOT EXISTS audit_by_group ON audit (server, group_id, number);
)";

std::optional<RoomKeyRecord> ReadRoomKey(Statement statement) {
  if (!statement.Next()) return std::nullopt;
  return RoomKeyRecord{statement.Text(0), statement.Text(1)};
}

}  // namespace

bool Store::Open(const std::string& folder, std::string& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!folder.empty() && !MakeFolder(folder, error)) return false;
  const std::string path = folder.empty() ? folder : folder + "/stand.sqlite";
  if (!database_.Open(path, error)) return false;
  if (database_.Execute(kSchema, error)) return true;
  error = path + ": " + error;
  return false;
}

std::optional<Identity> Store::GetIdentity(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare("SELECT certificate, key FROM identities WHERE name = ?");
  if (!find.Bind(name).Next()) return std::nullopt;
  return Identity{certificates_.Get(find.Text(0)), keys_.Get(find.Text(1))};
}

// Returns what is stored afterwards: of two threads that make the same identity, the first one wins.
std::optional<Identity> Store::KeepIdentity(const std::string& name, const Identity& identity) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto insert = database_.Prepare("INSERT OR IGNORE INTO identities VALUES (?, ?, ?)");
    insert.Bind(name).Bind(identity.certificate.ToPEM()).Bind(identity.key.ToPEM());
    if (!insert.Run()) return std::nullopt;
  }
  return GetIdentity(name);
}

bool Store::ReplaceIdentity(const std::string& name, const Identity& identity) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto replace = database_.Prepare("INSERT OR REPLACE INTO identities VALUES (?, ?, ?)");
  return replace.Bind(name).Bind(identity.certificate.ToPEM()).Bind(identity.key.ToPEM()).Run();
}

std::optional<std::int64_t> Store::CountSerial(const std::string& purpose) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto next = database_.Prepare(
      "INSERT INTO serial_numbers VALUES (?, 1) ON CONFLICT (purpose) DO UPDATE SET last = last + 1 "
      "RETURNING last");
  if (!next.Bind(purpose).Next()) return std::nullopt;
  const std::int64_t count = next.Number(0);
  return next.Run() ? std::optional(count) : std::nullopt;
}

// An existing room stays as it is, its group too.
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

std::optional<std::string> Store::HandOutSequence(const std::string& room, bool renew) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto update = database_.Prepare(
      renew ? "UPDATE rooms SET sequence = sequence + 1, sequence_open = 1 WHERE id = ? RETURNING sequence"
            : "UPDATE rooms SET sequence = sequence + 1 - sequence_open, sequence_open = 1 WHERE id = ? "
              "RETURNING sequence");
  if (!update.Bind(room).Next()) return std::nullopt;
  const std::string sequence = std::to_string(update.Number(0));
  // Steps the statement to its end: only then is the change committed.
  if (!update.Run()) return std::nullopt;
  return sequence;
}

Upload Store::UploadRoomKey(const std::string& room, const std::string& sequence, const Cert& certificate,
                            const std::string& data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  // Using up the sequence number and adding the key are one transaction, so that of two uploads with the same
  // number only one succeeds.
  Upload result = Upload::Failed;
  const bool kept = database_.Transact([&] {
    auto close = database_.Prepare(
        "UPDATE rooms SET sequence_open = 0 WHERE id = ? AND CAST(sequence AS TEXT) = ? AND sequence_open = "
        "1");
    if (!close.Bind(room).Bind(sequence).Run()) return false;
    if (database_.Changes() != 1) {
      result = Upload::StaleSequence;
      return false;
    }
    auto insert = database_.Prepare(
        "INSERT INTO room_keys (room, issuer, serial, certificate, data) VALUES (?, ?, ?, ?, ?)");
    insert.Bind(room).Bind(certificate.GetIssuer()).Bind(certificate.GetSerial()).Bind(certificate.ToPEM());
    return insert.Bind(data).Run();
  });
  return kept ? Upload::Done : result;
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

}  // namespace CryptStand

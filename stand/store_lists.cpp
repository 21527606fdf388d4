// What the control interface lists of the store: rooms with their keys, groups, and the certificates that
// authorities had before they were renewed.
#include "stand/store.h"

namespace CryptStand {

// One statement for all rooms, since the page asks for them after each change.
std::vector<RoomListing> Store::ListRooms(const std::optional<std::string>& id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<RoomListing> rooms;
  auto list = database_.Prepare(
      "SELECT r.id, r.group_id, r.locked, r.plain_key, r.cert_auth, "
      "(SELECT count(*) FROM room_keys WHERE room = r.id), k.certificate, k.data FROM rooms r LEFT JOIN "
      "room_keys k ON k.number = (SELECT max(number) FROM room_keys WHERE room = r.id) "
      "WHERE ?1 = '' OR r.id = ?1 ORDER BY r.rowid");
  list.Bind(id.value_or(""));
  while (list.Next()) {
    RoomListing listing;
    listing.room = {
        list.Text(0), list.Text(1), {list.Number(2) != 0, list.Number(3) != 0, list.Number(4) != 0}};
    listing.keys = list.Number(5);
    if (listing.keys > 0) listing.current = RoomKeyRecord{list.Text(6), list.Text(7)};
    rooms.push_back(std::move(listing));
  }
  return rooms;
}

std::vector<std::string> Store::GetGroups() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> groups;
  auto list = database_.Prepare("SELECT id FROM groups ORDER BY rowid");
  while (list.Next()) groups.push_back(list.Text(0));
  return groups;
}

bool Store::RenewCertificate(const std::string& name, const Cert& certificate) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return database_.Transact([&] {
    auto keep = database_.Prepare(
        "INSERT INTO former_certificates (name, certificate) SELECT name, certificate FROM identities WHERE "
        "name = ?");
    auto replace = database_.Prepare("UPDATE identities SET certificate = ? WHERE name = ?");
    return keep.Bind(name).Run() && replace.Bind(certificate.ToPEM()).Bind(name).Run() &&
           database_.Changes() == 1;
  });
}

std::vector<Cert> Store::GetFormerCertificates(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Cert> certificates;
  auto list = database_.Prepare("SELECT certificate FROM former_certificates WHERE name = ? ORDER BY number");
  list.Bind(name);
  while (list.Next()) certificates.push_back(certificates_.Get(list.Text(0)));
  return certificates;
}

}  // namespace CryptStand

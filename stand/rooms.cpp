// Rooms: which group they belong to, their member, their current key. The key store of groups is in
// rooms_keys.cpp.
#include "stand/rooms.h"

namespace CryptStand {
namespace {

constexpr std::int64_t kDay = 86400;

// The same serial number, subject and key as in the good one, so that only one thing is wrong at a time.
CertSpec RoomCertificateSpec(const Cert& original, const std::string& room, RoomCertificate type) {
  CertSpec spec = RoomKeySpec(room);
  spec.serial = original.GetSerial();
  if (type == RoomCertificate::Expired) spec.validity = Validity::FromNow(-30 * kDay, -kDay);
  return spec;
}

// Foreign leads to a root that nobody trusts; WrongIssuer leads to the trusted root, but not through the
// authority that signs the wrapped keys.
Role IssuerOf(RoomCertificate type) {
  if (type == RoomCertificate::Foreign) return Role::Foreign;
  return type == RoomCertificate::WrongIssuer ? Role::Issuing : Role::InnerSigning;
}

}  // namespace

// The suffix is part of the protocol: clients name their key with it in generateWrappedKeyRequest.
std::string RoomKeyName(const std::string& room) {
  return room + "-tr";
}

CertSpec RoomKeySpec(const std::string& room) {
  CertSpec spec = CertSpec::EndEntity(RoomKeyName(room));
  spec.keyUsage = "critical,keyEncipherment";
  spec.validity = KeyValidity();
  return spec;
}

Validity KeyValidity() {
  return Validity::FromNow(-kDay, 730L * kDay);
}

std::optional<std::string> Rooms::FindGroup(const std::string& id) {
  const auto room = store_.GetRoom(id);
  if (room.has_value()) return room->group;
  return store_.HasGroup(id) ? std::optional(id) : std::nullopt;
}

Identity Rooms::GetMember(const std::string& room) {
  const std::string name = "Member of " + room;
  auto kept = store_.GetIdentity(name);
  if (!kept.has_value()) {
    // Under the lock, so that two requests for a new room do not make two members.
    const std::lock_guard<std::mutex> lock(members_);
    kept = store_.GetIdentity(name);
    if (kept.has_value()) return *kept;
    CertSpec spec = CertSpec::EndEntity("Room member");
    spec.serial = authority_.MakeSerial(name);
    const KeyPair key = authority_.MakeKey("Member");
    kept = store_.KeepIdentity(name, Identity::MakeIssued(spec, authority_.Get(Role::Issuing), key));
  }
  return kept.value_or(Identity());
}

std::optional<RoomKeyPair> Rooms::OpenKey(const std::string& data) {
  const Identity wrapping = authority_.Get(Role::Wrapping);
  auto roomKey = opened_.Open(data, authority_.Get(Role::InnerSigning).certificate, wrapping);
  if (roomKey.has_value()) return roomKey;
  // A message names its signer by issuer and serial number, and a renewed certificate has another number.
  for (const Cert& signer : authority_.GetCertificates(Role::InnerSigning)) {
    roomKey = opened_.Open(data, signer, wrapping);
    if (roomKey.has_value()) return roomKey;
  }
  return std::nullopt;
}

// Changes only the certificate that the crypt service shows. The wrapped key keeps the good one, from which
// the others are derived and which is restored from it.
bool Rooms::SetRoomCertificate(const std::string& room, RoomCertificate type) {
  const auto record = store_.GetCurrentRoomKey(room);
  const auto roomKey = record.has_value() ? OpenKey(record->data) : std::nullopt;
  if (!roomKey.has_value()) return false;
  if (type == RoomCertificate::Good) {
    return store_.ReplaceRoomCertificate(room, roomKey->certificate.ToPEM());
  }
  const CertSpec spec = RoomCertificateSpec(roomKey->certificate, room, type);
  const Cert shown = Cert::Issue(spec, roomKey->key, authority_.Get(IssuerOf(type)));
  return !shown.IsEmpty() && store_.ReplaceRoomCertificate(room, shown.ToPEM());
}

}  // namespace CryptStand

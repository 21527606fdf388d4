#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stand/authority.h"
#include "stand/opened_keys.h"
#include "stand/store.h"
#include "stand/wrapped_key.h"

namespace CryptStand {

/// The certificate that the crypt service shows for a room's current key.
enum class RoomCertificate {
  Good,         ///< As the key server made it.
  Expired,      ///< The same, but expired.
  Foreign,      ///< From an authority that is in no list.
  WrongIssuer,  ///< From the trusted issuing authority itself, not from the inner signing certificate.
};

/// Rooms and groups with their keys, on top of the store. Safe for any number of threads; `store` and
/// `authority` must outlive it.
class Rooms {
 public:
  Rooms(Store& store, Authority& authority) : store_(store), authority_(authority) {}

  /// The group of a room, or the group itself when the id names a group.
  std::optional<std::string> FindGroup(const std::string& id);
  /// A member of the room who reads its keys; made when it is first asked for.
  Identity GetMember(const std::string& room);
  /// The group's integrity keys, oldest first; the first one is made when it is first asked for. Their
  /// certificates are issued by the trusted issuing authority itself.
  std::vector<IntegrityKeyRecord> GetIntegrityKeys(const std::string& group);
  /// One of the integrity keys. An empty sub-identifier finds the latest, which is the one in use.
  std::optional<IntegrityKeyRecord> FindIntegrityKey(const std::string& group, const std::string& subId);
  /// Puts a further integrity key into use. The earlier ones stay known.
  bool RenewIntegrityKey(const std::string& group);

  /// Adds an RSA key to the group's key store under an identifier that may have other keys. Under the
  /// identifier of integrity keys it becomes the group's integrity key and gets a certificate.
  bool ImportKey(const std::string& group, const std::string& id, const KeyPair& key);
  /// A key of the group's key store, integrity keys included. An empty sub-identifier finds the latest.
  std::optional<KeyPair> FindKey(const std::string& group, const std::string& id, const std::string& subId);
  /// False when there is no such key. Its sub-identifier is not used again.
  bool DeleteKey(const std::string& group, const std::string& id, const std::string& subId);

  /// Wraps a key of a room for readers and for the encryption certificate of the room's group. Empty on
  /// failure.
  std::string WrapKey(const std::string& room, const RoomKeyPair& roomKey, std::vector<Cert> readers);
  /// Makes a certificate the group's encryption certificate and wraps all keys of its rooms again, for this
  /// certificate instead of the former one. All or nothing.
  bool Reencrypt(const std::string& group, const Cert& certificate);
  /// Opens a wrapped key as key servers do.
  std::optional<RoomKeyPair> OpenKey(const std::string& data);
  /// Shows the room's current key with another certificate for the same key, serial number and subject.
  bool SetRoomCertificate(const std::string& room, RoomCertificate type);

 private:
  /// Generates the key if it is empty.
  bool AddIntegrityKey(const std::string& group, KeyPair key = {});
  Cert GetEncryptionCertificate(const std::string& group);
  std::string Rewrap(const std::string& data, const Cert& former, const Cert& certificate);

  Store& store_;
  Authority& authority_;
  OpenedKeys opened_;
  std::mutex members_;     // one new member at a time
  std::mutex integrity_;   // one new integrity key at a time
  std::mutex encryption_;  // one change of an encryption certificate at a time
};

/// The identifier of the keys that files are signed with.
inline constexpr const char* kIntegrityId = "integrity";

/// The common name of a room's key certificates.
std::string RoomKeyName(const std::string& room);
/// The contents of a room key's certificate.
CertSpec RoomKeySpec(const std::string& room);
/// The validity of new certificates for rooms and groups: two years. It starts a day ago, since the clocks of
/// clients and servers may differ.
Validity KeyValidity();

}  // namespace CryptStand

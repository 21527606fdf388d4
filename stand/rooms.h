#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stand/authority.h"
#include "stand/store.h"
#include "stand/wrappedkey.h"

namespace CryptStand {

/// The certificate with which a room's current key is shown.
enum class RoomCertificate {
  Good,         ///< As the key server made it.
  Expired,      ///< The same, but its time is over.
  Foreign,      ///< From an authority that no list holds.
  WrongIssuer,  ///< From the trusted issuing authority itself, not from the inner signing certificate.
};

/// Rooms and groups with their keys, over the store. Safe for any number of threads.
class Rooms {
 public:
  Rooms(Store& store, Authority& authority) : store_(store), authority_(authority) {}

  /// The group of a room, or the group itself when the id names a group.
  std::optional<std::string> FindGroup(const std::string& id);
  /// A member of the room who reads its keys; made when it is first asked for.
  Identity GetMember(const std::string& room);
  /// The group's integrity keys, oldest first; the first one is made when it is first asked for. Each comes
  /// directly from the trusted issuing authority.
  std::vector<IntegrityKeyRecord> GetIntegrityKeys(const std::string& group);
  /// Puts a further integrity key into use. The earlier ones stay known.
  bool RenewIntegrityKey(const std::string& group);
  /// Opens a wrapped key as key servers do.
  std::optional<RoomKeyPair> OpenKey(const std::string& data);
  /// Shows the room's current key with another certificate for the same key, serial number and subject.
  bool SetRoomCertificate(const std::string& room, RoomCertificate kind);

 private:
  bool AddIntegrityKey(const std::string& group, std::size_t number);

  Store& store_;
  Authority& authority_;
  std::mutex integrity_;  // one maker of integrity keys at a time
};

/// What a room key's certificate says.
CertSpec RoomKeySpec(const std::string& commonName);

}  // namespace CryptStand

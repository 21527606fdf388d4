#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stand/certmaker.h"
#include "stand/database.h"
#include "stand/roomoptions.h"

namespace CryptStand {

/// A room as the crypt service knows it.
struct RoomRecord {
  std::string id;
  std::string group;
  RoomOptions options;
};

/// A room key that was uploaded. Certificates are PEM.
struct RoomKeyRecord {
  std::string certificate;
  /// The wrapped key as it was uploaded.
  std::string data;
};

/// One integrity key of a group.
struct IntegrityKeyRecord {
  std::string subId;
  Identity identity;
};

/// What uploading a room key came to.
enum class Upload { Done, StaleSequence, Failed };

/// Everything that a stand keeps: in memory, or in the file "stand.sqlite" of its folder.
///
/// Private keys lie in it as plain PEM. That is right for a development stand alone; the folder is made with
/// mode 0700 and the file with mode 0600. Operations are safe for any number of threads; a lookup that fails
/// for a technical reason finds nothing.
class Store {
 public:
  /// Opens the folder, which is made when it is not there; an empty name keeps everything in memory. False
  /// with the reason in `error`.
  bool Open(const std::string& folder, std::string& error);

  std::optional<Identity> GetIdentity(const std::string& name);
  /// Keeps an identity under a name that is still free, and gives the one that is kept: an earlier one wins.
  std::optional<Identity> KeepIdentity(const std::string& name, const Identity& identity);

  bool AddGroup(const std::string& id, const std::string& name);
  bool HasGroup(const std::string& id);
  /// A room that is there already keeps its group and its options.
  bool AddRoom(const std::string& id, const std::string& group);
  std::optional<RoomRecord> GetRoom(const std::string& id);
  std::vector<std::string> GetRooms();
  bool SetRoomOptions(const std::string& id, const RoomOptions& options);

  /// A fresh sequence number for an upload; it makes any earlier one of the room stale.
  std::optional<std::string> HandOutSequence(const std::string& room);
  /// Makes the key the room's current one, if the sequence number is the one handed out last and unused.
  Upload UploadRoomKey(const std::string& room, const std::string& sequence, const Cert& certificate,
                       const std::string& data);
  std::optional<RoomKeyRecord> GetCurrentRoomKey(const std::string& room);
  /// By issuer (RFC 2253 text) and serial number (upper-case hexadecimal) of the key's certificate.
  std::optional<RoomKeyRecord> FindRoomKey(const std::string& room, const std::string& issuer,
                                           const std::string& serial);
  /// Lets the room's current key be shown with another certificate. It is found as before.
  bool ReplaceRoomCertificate(const std::string& room, const std::string& certificate);

  /// In the order of their making; the last is the one in use.
  std::vector<IntegrityKeyRecord> GetIntegrityKeys(const std::string& group);
  bool AddIntegrityKey(const std::string& group, const std::string& subId, const Identity& identity);

 private:
  std::mutex mutex_;
  Database database_;  // guarded by mutex_
};

}  // namespace CryptStand

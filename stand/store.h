#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stand/cert_maker.h"
#include "stand/database.h"
#include "stand/parsed_texts.h"
#include "stand/records.h"

namespace CryptStand {

/// The result of uploading a room key.
enum class Upload { Done, StaleSequence, Failed };

/// The persistent state of a test environment: in memory, or in the file "stand.sqlite" of its folder.
///
/// Private keys are stored as plain PEM, which is acceptable only in a test environment. The folder is
/// created with mode 0700 and the file with mode 0600. Operations are safe for any number of threads; a
/// lookup that fails for a technical reason finds nothing.
class Store {
 public:
  /// Opens the folder, which is created if it does not exist; with an empty name everything stays in memory.
  /// False with the reason in `error`.
  bool Open(const std::string& folder, std::string& error);

  std::optional<Identity> GetIdentity(const std::string& name);
  /// Stores an identity unless the name has one already, and returns the stored one. Two threads that make
  /// the same identity at once both get the stored one.
  std::optional<Identity> KeepIdentity(const std::string& name, const Identity& identity);
  /// Stores an identity in place of the one that the name has, if any.
  bool ReplaceIdentity(const std::string& name, const Identity& identity);

  /// Gives an identity another certificate for its key; the former ones are kept, oldest first.
  bool RenewCertificate(const std::string& name, const Cert& certificate);
  std::vector<Cert> GetFormerCertificates(const std::string& name);

  /// Counts the certificates of a purpose: 1 at the first call. The count survives a restart, since a serial
  /// number that depends on it must not be used again.
  std::optional<std::int64_t> CountSerial(const std::string& purpose);

  bool AddGroup(const std::string& id, const std::string& name);
  bool HasGroup(const std::string& id);
  std::optional<GroupRecord> GetGroup(const std::string& id);
  /// Adds or changes a group: all of it but the encryption certificate.
  bool ConfigureGroup(const GroupRecord& group);
  /// The wrapped keys of all rooms of a group.
  std::vector<WrappedKeyRecord> GetWrappedKeys(const std::string& group);
  /// Sets the group's encryption certificate and the keys that were wrapped again for it, all or nothing.
  bool SetEncryptionCertificate(const std::string& group, const std::string& certificate,
                                const std::vector<WrappedKeyRecord>& keys);

  /// An existing room keeps its group and its options.
  bool AddRoom(const std::string& id, const std::string& group);
  std::optional<RoomRecord> GetRoom(const std::string& id);
  std::vector<std::string> GetRooms();
  bool SetRoomOptions(const std::string& id, const RoomOptions& options);
  /// All rooms in the order of their creation, or the one with the id.
  std::vector<RoomListing> ListRooms(const std::optional<std::string>& id = {});
  std::vector<std::string> GetGroups();

  /// The sequence number for the room's next upload. It is the same for everybody until an upload has used
  /// it; with `renew` it is a fresh one that makes any earlier one stale.
  std::optional<std::string> HandOutSequence(const std::string& room, bool renew);
  /// Makes the key the room's current one, if the sequence number is the one handed out last and unused.
  Upload UploadRoomKey(const std::string& room, const std::string& sequence, const Cert& certificate,
                       const std::string& data);
  std::optional<RoomKeyRecord> GetCurrentRoomKey(const std::string& room);
  /// By issuer (in the form of RFC 2253) and serial number (upper-case hexadecimal) of the key's certificate.
  std::optional<RoomKeyRecord> FindRoomKey(const std::string& room, const std::string& issuer,
                                           const std::string& serial);
  /// Changes the certificate that is shown for the room's current key. FindRoomKey() still goes by the first
  /// one.
  bool ReplaceRoomCertificate(const std::string& room, const std::string& certificate);

  /// Oldest first; the last is the one in use.
  std::vector<IntegrityKeyRecord> GetIntegrityKeys(const std::string& group);
  bool AddIntegrityKey(const std::string& group, const std::string& subId, const Identity& identity);
  bool DeleteIntegrityKey(const std::string& group, const std::string& subId);

  /// A sub-identifier for a new key: the identifier's next number, which is not used again.
  std::optional<std::string> HandOutSubId(const std::string& group, const std::string& id);
  bool AddImportedKey(const std::string& group, const std::string& id, const std::string& subId,
                      const KeyPair& key);
  /// An empty sub-identifier finds the key that was added last.
  std::optional<KeyPair> FindImportedKey(const std::string& group, const std::string& id,
                                         const std::string& subId);
  bool DeleteImportedKey(const std::string& group, const std::string& id, const std::string& subId);

  bool AddAudit(const AuditRecord& record);
  /// The number of the latest record; 0 when there is none.
  std::int64_t GetLastAudit();
  /// At most `count` records of a server and a group with numbers above `after` and up to `last`.
  std::vector<AuditRecord> GetAudit(int server, const std::string& group, std::int64_t after,
                                    std::int64_t last, std::int64_t count);

  /// Remembers the present state as the one after the start. Called once.
  bool MarkStart();
  /// Brings that state back: rooms and their options, room keys, groups and their configuration, imported
  /// keys and audit records. Identities and integrity keys stay, and no number is handed out twice. All or
  /// nothing.
  bool Reset();

 private:
  std::mutex mutex_;
  Database database_;               // guarded by mutex_
  ParsedTexts<Cert> certificates_;  // guarded by mutex_
  ParsedTexts<KeyPair> keys_;       // guarded by mutex_
};

}  // namespace CryptStand

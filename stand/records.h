#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "stand/cert_maker.h"
#include "stand/room_options.h"

// The records in the store.
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
  /// The wrapped key as it was uploaded, or as it was wrapped again later.
  std::string data;
};

/// A room with its current key.
struct RoomListing {
  RoomRecord room;
  std::int64_t keys = 0;  ///< How many keys the room has had.
  std::optional<RoomKeyRecord> current{};
};

/// A wrapped key and its number in the store.
struct WrappedKeyRecord {
  std::int64_t number = 0;
  std::string data;
};

/// One integrity key of a group.
struct IntegrityKeyRecord {
  std::string subId;
  Identity identity;
};

/// A group. Certificates of its configuration are kept as they were sent.
struct GroupRecord {
  std::string id;
  std::string name;
  std::string owner{};
  std::vector<std::string> rootCertificates{};
  std::vector<std::string> issuingCertificates{};
  std::vector<std::string> crlUrls{};
  /// PEM of the certificate that every room key of the group is wrapped for; empty for none.
  std::string encryptionCertificate{};
};

/// One line of a key server's audit log.
struct AuditRecord {
  std::int64_t number = 0;  ///< Given by the store; grows with each record.
  int server = 0;           ///< Index of the key server.
  std::string group{};
  std::string time{};  ///< ISO 8601 in UTC, by the server's own clock.
  std::string operation{};
  std::string room{};  ///< Empty if the command is about the group itself.
  std::string key{};   ///< Identifier, slash, sub-identifier; empty if the command names no key.
  std::string outcome{};
};

}  // namespace CryptStand

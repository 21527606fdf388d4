#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bindings/c/server_probe.h"
#include "foundation/kvmap.h"
#include "security/certificate.h"

namespace CryptCliC {

/// How the crypt service has a room's private key: not at all, readable for key servers only, or for clients.
enum class KeyType { None, Wrapped, Plain };

/// What the crypt service says about a room and its key. A value without secrets.
struct RoomInfo {
  std::string room;
  std::string group;
  KeyType keyType = KeyType::None;
  OruOssSec::Certificate certificate;   ///< of the key; empty without one
  std::vector<std::string> keyServers;  ///< as they came; empty for an element that is not a string
  std::uint32_t statusTimeout = 0;      ///< seconds; 0 for no limit
  bool certificateAuthentication = false;
};

/// The request for a room's current key and its outcome.
struct RoomQuery {
  bool ok = false;
  ServerProbe probe;
  std::string message;  ///< why it failed, in the words of the class
  RoomInfo info;        ///< if ok
};

/// Asks the crypt service for a room's current key. That is a GET request, which changes nothing.
RoomQuery QueryRoom(Operation& operation, const cryptcli_client& client, std::string_view room);
/// The JSON members of cryptcli_room.
OruGuiBase::KVMap DescribeRoom(const RoomInfo& info);

}  // namespace CryptCliC

#pragma once

#include <optional>
#include <string>

#include "stand/realm.h"
#include "stand/served.h"

namespace CryptStand {

/// The error that an application can tell from all others: the room is locked.
inline constexpr const char* kLockedErrorId = "QOB.1.1001.1.422645";
inline constexpr const char* kUnknownErrorId = "QOB.1.1001.1.404";
inline constexpr const char* kMalformedErrorId = "QOB.1.1001.1.400";

/// The crypt service: rooms, certificate lists, tokens. Its resources, below the base URL:
///
///   GET, POST crypt/key/<room>                          the room's key, current or by certificate
///   POST      crypt/certlist/<room>                     certificates and sequence number for a new key
///   POST      crypt/newkey/<room>                       upload of a new key
///   POST      crypt/authztoken/<room or group>          a token for one command on one key server
///   POST      crypt/certlist/<group>/integrity/<digest> digests of integrity certificates
///
/// Anything malformed is refused with status 400, an unknown path with 404, another method with 405 and
/// another content type than JSON with 415, each with "errorid" and "errortext".
class CryptService {
 public:
  /// A request's resource, by the names "key", "certlist", "newkey", "authztoken" and "integrity".
  struct Route {
    std::string operation;
    std::string id;
    std::string digest;  ///< Only of "integrity".
  };

  explicit CryptService(Realm& realm) : realm_(realm) {}

  static std::optional<Route> FindRoute(const HttpRequest& request);
  Served Serve(const HttpRequest& request, const std::optional<Route>& route);

 private:
  Served ServeKey(const HttpRequest& request, const Route& route);
  Served ServeCertList(const KVMap& body, const Route& route);
  Served ServeNewKey(const KVMap& body, const Route& route);
  Served ServeToken(const KVMap& body, const Route& route);
  Served ServeIntegrity(const KVMap& body, const Route& route);

  /// The answer for a room's key; the keys are left out when there is no record.
  Served KeyResponse(const RoomRecord& room, const std::optional<RoomKeyRecord>& record);
  /// Group, key servers, timeout and the probing flag, as two of the responses carry them.
  void AddConfiguration(const RoomRecord& room, KVMap& response) const;
  /// Why a room cannot be served by anything but "key"; none when it can.
  std::optional<Served> RefuseRoom(const std::optional<RoomRecord>& room) const;
  bool IsKeyServerOrEmpty(const std::optional<std::string>& url) const;

  Realm& realm_;
};

}  // namespace CryptStand

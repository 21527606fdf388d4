#pragma once

#include <optional>
#include <string>

#include "stand/realm.h"
#include "stand/served.h"

namespace CryptStand {

/// The crypt service: rooms, certificate lists, tokens. Stateless itself; `realm` must outlive it. Its
/// resources, below the base URL:
///
///   GET, POST crypt/key/<room>                          the room's key, current or by certificate
///   POST      crypt/certlist/<room>                     certificates and sequence number for a new key
///   POST      crypt/newkey/<room>                       upload of a new key
///   POST      crypt/authztoken/<room or group>          a token for one command on one key server
///   POST      crypt/certlist/<group>/integrity/<digest> digests of integrity certificates
///
/// Anything malformed is refused with status 400, an unknown path with 404, another method with 405 and
/// another content type than JSON with 415, each with "errorid" and "errortext"; a request without a header
/// that the settings require with 401.
class CryptService {
 public:
  /// The resource of a request: "key", "certlist", "newkey", "authztoken" or "integrity".
  struct Route {
    std::string operation;
    std::string id;
    std::string digest;  ///< Only of "integrity".
  };

  explicit CryptService(Realm& realm) : realm_(realm) {}

  static std::optional<Route> FindRoute(const HttpRequest& request);
  /// All operations of routes.
  static std::vector<std::string> GetOperations();
  Served Serve(const HttpRequest& request, const std::optional<Route>& route);

 private:
  Served ServeKey(const HttpRequest& request, const Route& route);
  Served ServeCertList(const KVMap& body, const Route& route);
  Served ServeNewKey(const KVMap& body, const Route& route);
  Served ServeToken(const KVMap& body, const Route& route);
  Served ServeIntegrity(const KVMap& body, const Route& route);

  /// The response about a room's key; without a record it has no key members.
  Served KeyResponse(const RoomRecord& room, const std::optional<RoomKeyRecord>& record);
  /// Adds group, key servers, timeout and the probing flag, which "key" and "certlist" both return.
  void AddConfiguration(const RoomRecord& room, KVMap& response) const;
  /// The refusal of an unknown or locked room for all resources but "key"; none when it can be served.
  std::optional<Served> RefuseRoom(const std::optional<RoomRecord>& room) const;
  bool IsKeyServerOrEmpty(const std::optional<std::string>& url) const;

  Realm& realm_;
};

}  // namespace CryptStand

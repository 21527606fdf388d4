#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stand/event_log.h"
#include "stand/faults.h"
#include "stand/options.h"
#include "stand/proxy.h"
#include "stand/rooms.h"
#include "stand/settings.h"
#include "stand/tls_identities.h"

/// A local test environment: one crypt service and several key servers on ports of this machine, with real
/// keys, real certificates and real HTTP. Never for anything that has to be protected: its private keys are
/// stored unencrypted, and whoever reaches its ports may use them.
namespace CryptStand {

/// A running test environment; owns its servers and threads. All members but Reserve() and Start() may be
/// called from any thread. Servers are named by the index of the key server or by kCryptService.
class Stand {
 public:
  explicit Stand(Options options = {});
  /// Ends every connection and every server.
  ~Stand();
  Stand(const Stand&) = delete;
  Stand& operator=(const Stand&) = delete;

  /// Takes the folder for this object. Called before Start() by whoever has to know that no other environment
  /// runs on it. False with the reason in `error`.
  bool Reserve(std::string& error);
  /// Takes the folder unless that is done, opens it and brings all servers up. Called once. False with the
  /// reason in `error`.
  bool Start(std::string& error);
  /// The type of the failure of Reserve() or Start().
  StartFailure GetStartFailure() const;

  /// Base URL of the crypt service; it ends in a slash.
  std::string GetServiceUrl() const;
  std::vector<std::string> GetKeyServerUrls() const;
  std::vector<std::string> GetRooms() const;

  /// The certificate of the servers' authority in PEM, and the file that contains it; empty without TLS or,
  /// for the file, without a folder.
  std::string GetServerAuthority() const;
  std::string GetServerAuthorityFile() const;
  /// The client that was made; empty unless Options::clientCa is "make".
  Identity GetClient() const;
  /// Changes what a server shows from its next connection on, and ends its connections. False when there is
  /// no such server or it does not speak TLS. For tests.
  bool SetServerCertificate(int server, ServerCertificate type);

  /// Ends the connections to a server that wait for a request at once, the others after their response, as
  /// servers and the devices in front of them do with idle ones. False when there is no such server.
  bool EndConnections(int server);

  /// URL of the proxy; empty without one.
  std::string GetProxyUrl() const;
  /// The latest tunnels and requests of the proxy, oldest first. For tests, like the next one.
  std::vector<ProxyRecord> GetProxyRecords() const;
  void ClearProxyRecords();

  /// Adds a fault to a server, or to kProxy; Down also closes its socket. Down and ServerCertificate concern
  /// no single operation and last until ClearFaults(). False when there is no such server.
  bool SetFault(int server, const Fault& fault);
  /// Removes all faults and brings the server up on its old port. False when it cannot be brought up.
  bool ClearFaults(int server);

  /// A group with its configuration; none when there is no such group.
  std::optional<GroupRecord> GetGroup(const std::string& id) const;
  /// Adds a room to a group, by default the one in Options; an existing room stays as it is. False unless the
  /// id is UTF-8 and the group is known.
  bool AddRoom(const std::string& id, const std::string& group = "");
  /// For tests; none when there is no such room.
  std::optional<RoomOptions> GetRoomOptions(const std::string& room) const;
  bool SetRoomOptions(const std::string& room, const RoomOptions& options);
  /// Changes the certificate that is shown for the room's current key; false when it has no key.
  bool SetRoomCertificate(const std::string& room, RoomCertificate type);
  /// Puts a new integrity key of the group into use; files signed with earlier ones stay valid.
  bool RenewIntegrityKey();
  /// How long tokens that are issued from now on can be used; one minute by default. For tests.
  void SetTokenLifetime(std::chrono::milliseconds lifetime);
  /// Brings back the state after the start (Environment::Reset).
  bool Reset();
  /// What the control interface wants for changes.
  const std::string& GetControlToken() const;
  /// Lists, clocks, announced addresses and the size of audit logs.
  Settings& GetSettings();

  /// The latest requests to all servers, oldest first. For tests.
  std::vector<Event> GetEvents() const;
  void ClearEvents();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace CryptStand

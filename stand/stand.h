#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stand/event_log.h"
#include "stand/faults.h"
#include "stand/rooms.h"
#include "stand/settings.h"

/// A local stand for development and tests: one crypt service and several key servers on ports of 127.0.0.1,
/// with real keys, real certificates and real HTTP. Never for anything that has to be protected: its private
/// keys lie in the clear in its folder, and whoever reaches its ports may change how it behaves.
namespace CryptStand {

/// How a stand is made.
struct Options {
  /// Where it keeps keys, rooms and certificates; made with mode 0700 when it is not there. Empty keeps all
  /// in memory, and stands of that type share the key pairs that a process makes for authorities, members and
  /// integrity keys, so that starting one costs next to nothing. Such stands accept each other's signatures.
  std::string folder;
  /// Makes a stand in memory use keys of its own all the same.
  bool ownKeys = false;
  int keyServers = 3;
  /// Port of the crypt service; the key servers take the ports after it. 0 takes any free ports.
  int port = 0;
  std::string group = "QOB.1.100.1";
  std::string groupName = "Demo group";
  std::vector<std::string> rooms = {"demo"};
};

/// A running stand. All members but Start() may be called from any thread; servers are named by the index of
/// the key server or by kCryptService.
class Stand {
 public:
  explicit Stand(Options options = {});
  /// Ends every connection and every server.
  ~Stand();
  Stand(const Stand&) = delete;
  Stand& operator=(const Stand&) = delete;

  /// Opens the folder and brings all servers up. Called once. False with the reason in `error`.
  bool Start(std::string& error);

  /// Base URL of the crypt service; it ends in a slash.
  std::string GetServiceUrl() const;
  std::vector<std::string> GetKeyServerUrls() const;
  std::vector<std::string> GetRooms() const;

  /// Adds a fault to a server; Down also closes its socket. Down concerns no single operation and lasts until
  /// ClearFaults(). False when there is no such server.
  bool SetFault(int server, const Fault& fault);
  /// Takes all faults back and brings the server up on its old port. False when it cannot be brought up.
  bool ClearFaults(int server);

  /// A group with all that was configured for it; none when there is no such group.
  std::optional<GroupRecord> GetGroup(const std::string& id) const;
  /// Makes a room in a group, which is the stand's own when none is named; a room that is there stays as it
  /// is. False unless the id is UTF-8 text and the group is known.
  bool AddRoom(const std::string& id, const std::string& group = "");
  std::optional<RoomOptions> GetRoomOptions(const std::string& room) const;
  bool SetRoomOptions(const std::string& room, const RoomOptions& options);
  /// Changes how the room's current key is shown; false when it has none.
  bool SetRoomCertificate(const std::string& room, RoomCertificate type);
  /// Puts a new integrity key of the group into use; files signed with earlier ones stay good.
  bool RenewIntegrityKey();
  /// How long tokens from now on can be used; one minute when nothing is said.
  void SetTokenLifetime(std::chrono::milliseconds lifetime);
  /// Lists, clocks, announced addresses and the size of audit logs.
  Settings& GetSettings();

  /// The latest requests to all servers, oldest first.
  std::vector<Event> GetEvents() const;
  void ClearEvents();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace CryptStand

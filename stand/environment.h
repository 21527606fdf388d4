#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stand/realm.h"
#include "stand/servers.h"

namespace CryptStand {

/// What can be done to a running test environment, by class Stand in its own process and by the control
/// interface from outside. Each change is reported to the followers of the event log. `realm` and `servers`
/// must outlive it. Safe for any number of threads.
class Environment {
 public:
  /// What is shown of a room key. It never contains the private key.
  struct KeyView {
    Cert certificate;                  ///< As the key server made it.
    std::vector<std::string> readers;  ///< Subjects of the certificates that the key is wrapped for.
  };

  Environment(Realm& realm, Servers& servers, std::string group)
      : realm_(realm), servers_(servers), group_(std::move(group)) {}

  Realm& GetRealm() const { return realm_; }
  Servers& GetServers() const { return servers_; }
  /// When it was made. This names the run: each counts its events from 1, so a client that follows them could
  /// take those of another run for its own.
  std::chrono::system_clock::time_point GetStart() const { return start_; }

  /// Adds a fault and returns its identifier; Down also takes the server down. None if there is no such
  /// server.
  std::optional<std::uint64_t> SetFault(int server, const Fault& fault);
  /// Removes all faults and brings the server up. False when there is no such server or it cannot be brought
  /// up.
  bool ClearFaults(int server);
  /// Removes one fault. False when there is none with the identifier.
  bool ClearFault(std::uint64_t id);

  /// Adds a room to a group, by default the usual one. False unless the id is UTF-8 and the group is known.
  bool AddRoom(const std::string& id, const std::string& group = "");
  /// Opens a wrapped key; what was read once is remembered. None when it cannot be opened.
  std::optional<KeyView> ViewKey(const std::string& data);

  /// Brings back the state after the start: faults, clocks, lists, settings, events, and whatever the store
  /// counts as state (Store::Reset). Tokens that were issued become invalid. Authorities, identities and
  /// integrity keys stay, so that what clients cached of them stays valid.
  bool Reset();

 private:
  bool BringUp(int server);
  /// Holds `change_`, but not for the crypt service: whoever takes that down waits for the requests to the
  /// control interface, and one of these may wait for `change_`.
  std::unique_lock<std::mutex> LockFor(int server);

  Realm& realm_;
  Servers& servers_;
  const std::chrono::system_clock::time_point start_ = std::chrono::system_clock::now();
  const std::string group_;  // of new rooms for which none is named
  /// A fault and the state of its server change together.
  std::mutex change_;
  std::mutex mutex_;
  std::map<std::string, KeyView> views_;  // by wrapped key; guarded by mutex_
};

}  // namespace CryptStand

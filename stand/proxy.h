#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "stand/event_log.h"
#include "stand/faults.h"
#include "stand/listener.h"

namespace CryptStand {

/// One tunnel or request that a client asked the proxy for.
struct ProxyRecord {
  std::uint64_t number = 0;  ///< Counts from 1.
  std::chrono::system_clock::time_point time{};
  std::string method;  ///< "CONNECT" for a tunnel. At most 255 bytes, as the host.
  std::string host;
  int port = 0;
  std::uint64_t bytesToServer = 0;  ///< What passed so far, without the request for a tunnel.
  std::uint64_t bytesToClient = 0;
  std::chrono::milliseconds duration{};
  int status = 0;       ///< 200, or that of the proxy's refusal.
  std::string outcome;  ///< "open", "ok", or the reason of the refusal.
};

/// A forward proxy on 127.0.0.1 for clients under test: tunnels (CONNECT) and requests in absolute form
/// (RFC 9112, 3.2.2 and 3.2.3). It forwards to loopback alone, so that it cannot be used to reach other
/// machines. One request or tunnel for each connection. Safe for any number of threads.
class ForwardProxy {
 public:
  /// `faults` must outlive it. Those of kProxy apply, by method: Status, Slow and Drop.
  explicit ForwardProxy(Faults& faults);

  /// Binds a port, 0 for any. False with the reason in `error`.
  bool Bind(int port, std::string& error) { return listener_.Bind("127.0.0.1", port, error); }
  int GetPort() const { return listener_.GetPort(); }
  bool Up(std::string& error) { return listener_.Up(error); }
  void Down() { listener_.Down(); }
  bool IsUp() const { return listener_.IsUp(); }

  /// The latest ones, oldest first.
  std::vector<ProxyRecord> GetRecords() const;
  void ClearRecords();

 private:
  class Exchange;

  std::uint64_t Add(ProxyRecord record);
  template <class Change>
  void Update(std::uint64_t number, const Change& change);

  Faults& faults_;
  mutable std::mutex mutex_;
  std::uint64_t count_ = 0;          // guarded by mutex_
  std::deque<ProxyRecord> records_;  // guarded by mutex_
  Listener listener_;                // last, so that its threads end before what they use
};

}  // namespace CryptStand

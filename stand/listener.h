#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "stand/socket.h"

namespace CryptStand {

/// What a listener and the thread of one of its connections share.
struct ConnectionState {
  std::atomic<bool> isIdle = false;  ///< waits for a request; set by the connection
  std::atomic<bool> isLast = false;  ///< takes no further request; set by the listener
};

/// Accepts connections on one port and serves each on a thread of its own. The port stays bound while the
/// listener is down, but nothing listens on it: connections are refused, and no other program gets the port
/// in the meantime.
class Listener {
 public:
  /// Serves a connection until its end. The listener owns the socket, and shuts it down to end a wait.
  using Serve = std::function<void(int socket, const std::stop_token& stop, ConnectionState& state)>;

  explicit Listener(Serve serve) : serve_(std::move(serve)) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() { Down(); }

  /// Binds a port of an IP address, 0 for any. False with the reason in `error`.
  bool Bind(const std::string& address, int port, std::string& error);
  int GetPort() const { return port_; }

  /// Listens and serves; does nothing if it already does. False with the reason in `error`.
  bool Up(std::string& error);
  /// Closes the listening socket and all connections and waits for their threads. Not to be called from one
  /// of these threads.
  void Down();
  bool IsUp() const { return up_; }
  /// Ends the connections that are idle at once, the others before their next request.
  void EndConnections();

 private:
  /// An accepted connection with its thread. Stays in the list, and its socket open, until the thread has
  /// been joined.
  struct Connection {
    Socket socket;
    ConnectionState state;
    std::thread thread;
    bool ended = false;  // guarded by mutex_
  };

  void AcceptAll();
  void ServeOne(Connection& connection);
  void Admit(Socket socket);
  void Reap();

  const Serve serve_;
  std::string address_;
  int port_ = 0;
  Socket reserved_;  // keeps the port bound while the listener is down; never listens
  Socket listening_;
  Socket wake_;
  std::thread acceptor_;
  std::stop_source stopping_;
  std::atomic<bool> up_ = false;
  std::mutex change_;  // one Up or Down at a time
  std::mutex mutex_;
  std::list<Connection> connections_;  // guarded by mutex_
};

}  // namespace CryptStand

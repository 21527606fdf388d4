#pragma once

#include <atomic>
#include <stop_token>

#include "stand/http.h"

namespace CryptStand {

/// What all connections of a server have in common. The references must outlive them.
struct ConnectionSetup {
  const HttpHandler& handler;
  const HttpTimeouts& timeouts;
  const TlsSource& tls;  ///< plain connections without a function in it
  std::stop_token stop;
};

/// What a server and the thread of one of its connections know of each other.
struct ConnectionState {
  std::atomic<bool> isIdle = false;  ///< waits for a request; set by the connection
  std::atomic<bool> isLast = false;  ///< takes no further request; set by the server
};

/// Serves the requests of one accepted connection, one after another, until it is closed or `setup.stop` is
/// requested. The caller owns the socket and shuts it down to end a wait.
void ServeConnection(int socket, const ConnectionSetup& setup, ConnectionState& state) noexcept;

}  // namespace CryptStand

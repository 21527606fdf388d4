#pragma once

#include <stop_token>

#include "stand/http.h"
#include "stand/listener.h"

namespace CryptStand {

/// What all connections of a server have in common. The references must outlive them.
struct ConnectionSetup {
  const HttpHandler& handler;
  const HttpTimeouts& timeouts;
  const TlsSource& tls;  ///< plain connections without a function in it
  std::stop_token stop;
};

/// Serves the requests of one accepted connection, one after another, until it is closed or `setup.stop` is
/// requested. The caller owns the socket and shuts it down to end a wait.
void ServeConnection(int socket, const ConnectionSetup& setup, ConnectionState& state) noexcept;

}  // namespace CryptStand

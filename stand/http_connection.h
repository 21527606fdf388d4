#pragma once

#include <stop_token>

#include "stand/http.h"

namespace CryptStand {

/// Serves the requests of one accepted connection, one after another, until it is closed or `stop` is
/// requested. The caller owns the socket and shuts it down to end a wait.
void ServeConnection(int socket, const HttpHandler& handler, const std::stop_token& stop,
                     const HttpTimeouts& timeouts) noexcept;

}  // namespace CryptStand

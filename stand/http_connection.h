#pragma once

#include <stop_token>

#include "stand/http.h"

namespace CryptStand {

/// Answers the requests of one accepted connection, one after another, until the connection ends, has to end
/// or `stop` is requested. The socket stays the caller's, who shuts it down to end a wait.
void ServeConnection(int socket, const HttpHandler& handler, const std::stop_token& stop,
                     const HttpTimeouts& timeouts) noexcept;

}  // namespace CryptStand

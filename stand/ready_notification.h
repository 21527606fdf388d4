#pragma once

#include <string>

namespace CryptStand {

/// Sends a state such as "READY=1" to the service manager that started the process, by the protocol of
/// systemd: a datagram to the socket in $NOTIFY_SOCKET. True if there is none. False with the reason in
/// `error` if it does not take the datagram.
bool NotifyServiceManager(const std::string& state, std::string& error);

}  // namespace CryptStand

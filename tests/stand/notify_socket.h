#pragma once

#include <string>

namespace CryptStand {

/// A service manager's socket, which $NOTIFY_SOCKET names for the life of this object.
class NotifySocket {
 public:
  /// A path, or a name after "@" in the abstract namespace. May leave the variable set when the socket is
  /// gone.
  explicit NotifySocket(const std::string& name, bool keepsVariable = false);
  ~NotifySocket();
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  /// The next datagram; "(none)" if none arrives within half a minute.
  std::string Receive() const;

 private:
  bool keepsVariable_;
  int handle_;
};

}  // namespace CryptStand

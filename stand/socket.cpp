// Blocking reads and writes with a timeout on each wait, so that a silent client costs a thread only for so
// long.
#include "stand/socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

// False with the reason in `errno`.
bool WaitFor(int handle, short events, int timeoutMs) {
  pollfd entry = {handle, events, 0};
  int found = 0;
  do {
    found = poll(&entry, 1, timeoutMs);
  } while (found < 0 && errno == EINTR);
  if (found == 0) errno = ETIMEDOUT;
  return found > 0;
}

sockaddr_in LoopbackAddress(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int PortOf(const sockaddr_in& address) {
  return ntohs(address.sin_port);
}

}  // namespace

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = std::exchange(other.handle_, -1);
  }
  return *this;
}

void Socket::Close() {
  if (handle_ >= 0) close(std::exchange(handle_, -1));
}

Socket Socket::BindLoopback(int port, std::string& error) {
  Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // SO_REUSEADDR lets the listening socket share the port with the one that reserves it, and a restarted
  // server use it although connections are in TIME_WAIT.
  const int on = 1;
  const sockaddr_in address = LoopbackAddress(port);
  if (!socket.IsOpen() || setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    error = "port " + std::to_string(port) + ": " + std::generic_category().message(errno);
    socket.Close();
  }
  return socket;
}

int Socket::GetPort() const {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  return getsockname(handle_, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? PortOf(address) : 0;
}

bool WaitForSocket(int handle, bool forReading, int timeoutMs) {
  return WaitFor(handle, forReading ? POLLIN : POLLOUT, timeoutMs);
}

ssize_t ConnectionStream::Read(void* data, std::size_t size) const {
  if (!WaitFor(handle_, POLLIN, timeoutMs_)) return -1;
  ssize_t count = 0;
  do {
    count = recv(handle_, data, size, 0);
  } while (count < 0 && errno == EINTR);
  return count;
}

ssize_t ConnectionStream::Write(iovec* parts, std::size_t count) const {
  if (!WaitFor(handle_, POLLOUT, timeoutMs_)) return -1;
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  ssize_t written = 0;
  do {
    written = sendmsg(handle_, &message, MSG_NOSIGNAL);  // a client that has gone is an error, not a SIGPIPE
  } while (written < 0 && errno == EINTR);
  return written;
}

bool ConnectionStream::WaitForData(int timeoutMs) const {
  return WaitFor(handle_, POLLIN, timeoutMs);
}

void ConnectionStream::EndWriting() const {
  shutdown(handle_, SHUT_WR);
}

}  // namespace CryptStand

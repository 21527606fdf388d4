// Blocking reads and writes with a timeout on each wait, so that a silent client occupies its thread for a
// limited time only. Used by http_connection.cpp and proxy.cpp.
#include "stand/socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kMaxRecord = 16U << 10U;  // RFC 8446, 5.1: the longest content of a record of TLS

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

// An address of either family as the system calls take it.
struct Endpoint {
  sockaddr_storage storage = {};
  socklen_t size = 0;  // 0: none

  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

Endpoint MakeEndpoint(const std::string& address, int port) {
  Endpoint endpoint;
  auto* const v4 = reinterpret_cast<sockaddr_in*>(&endpoint.storage);
  auto* const v6 = reinterpret_cast<sockaddr_in6*>(&endpoint.storage);
  if (inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(static_cast<std::uint16_t>(port));
    endpoint.size = sizeof *v4;
  } else if (inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(static_cast<std::uint16_t>(port));
    endpoint.size = sizeof *v6;
  }
  return endpoint;
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

Socket Socket::Bind(const std::string& address, int port, std::string& error) {
  const Endpoint endpoint = MakeEndpoint(address, port);
  if (endpoint.size == 0) {
    error = address + ": not an IP address";
    return {};
  }
  Socket socket(::socket(endpoint.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // SO_REUSEADDR lets the listening socket share the port with the one that reserves it, and a restarted
  // server use it although connections are in TIME_WAIT.
  const int on = 1;
  if (!socket.IsOpen() || setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(socket.Get(), endpoint.Get(), endpoint.size) != 0) {
    error = "port " + std::to_string(port) + ": " + std::generic_category().message(errno);
    socket.Close();
  }
  return socket;
}

Socket Socket::Connect(const std::string& address, int port, std::string& error) {
  const Endpoint endpoint = MakeEndpoint(address, port);
  Socket socket(endpoint.size != 0 ? ::socket(endpoint.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0)
                                   : -1);
  if (!socket.IsOpen() || connect(socket.Get(), endpoint.Get(), endpoint.size) != 0) {
    error = std::generic_category().message(errno);
    socket.Close();
  }
  return socket;
}

int Socket::GetPort() const {
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  if (getsockname(handle_, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  // The port is at the same place in both families.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

bool IsIpAddress(const std::string& address) {
  return MakeEndpoint(address, 0).size != 0;
}

bool IsLoopbackAddress(const std::string& address) {
  in_addr v4 = {};
  in6_addr v6 = {};
  if (inet_pton(AF_INET, address.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24U) == IN_LOOPBACKNET;
  return inet_pton(AF_INET6, address.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

bool WaitForSocket(int handle, bool forReading, int timeoutMs) {
  return WaitFor(handle, forReading ? POLLIN : POLLOUT, timeoutMs);
}

// A client that is refused here may have sent its request already: in TLS 1.3 it does not wait for the
// server's opinion of its certificate. It must read the alert before it sees a reset.
bool ConnectionStream::Secure(const TlsContext& context, std::string& error) {
  auto session = std::make_unique<TlsSession>(context, handle_);
  if (session->Accept(timeoutMs_, error)) {
    tls_ = std::move(session);
    return true;
  }
  shutdown(handle_, SHUT_WR);
  Drain(kMaxRecord);
  return false;
}

ssize_t ConnectionStream::Read(void* data, std::size_t size) {
  if (tls_ != nullptr) return tls_->Read(data, size, timeoutMs_);
  if (!WaitFor(handle_, POLLIN, timeoutMs_)) return -1;
  ssize_t count = 0;
  do {
    count = recv(handle_, data, size, 0);
  } while (count < 0 && errno == EINTR);
  return count;
}

ssize_t ConnectionStream::Write(iovec* parts, std::size_t count) {
  if (tls_ != nullptr) return WriteSecured(parts, count);
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

// Puts the parts together, since each write makes a record of its own and a chunk alone has three parts.
ssize_t ConnectionStream::WriteSecured(const iovec* parts, std::size_t count) {
  std::array<char, kMaxRecord> record;
  std::size_t size = 0;
  for (std::size_t i = 0; i < count && size < record.size(); ++i) {
    const std::size_t taken = std::min(parts[i].iov_len, record.size() - size);
    std::copy_n(static_cast<const char*>(parts[i].iov_base), taken, record.data() + size);
    size += taken;
  }
  return tls_->Write(record.data(), size, timeoutMs_);
}

bool ConnectionStream::WaitForFirstByte() const {
  char first = 0;
  return WaitFor(handle_, POLLIN, timeoutMs_) && recv(handle_, &first, 1, MSG_PEEK) == 1;
}

// poll() does not see the bytes that OpenSSL has already taken from the socket.
bool ConnectionStream::WaitForData(int timeoutMs) const {
  return (tls_ != nullptr && tls_->HasPending()) || WaitFor(handle_, POLLIN, timeoutMs);
}

// Without events: poll() then reports the end alone.
bool ConnectionStream::Pause(int milliseconds) const {
  return !WaitFor(handle_, 0, milliseconds);
}

// A client that leaves ends its side of the connection first.
bool ConnectionStream::PauseForClient(int milliseconds) const {
  return !WaitFor(handle_, POLLRDHUP, milliseconds);
}

void ConnectionStream::EndWriting() {
  if (tls_ != nullptr) tls_->End();
  shutdown(handle_, SHUT_WR);
}

// Below TLS, whose records need not be understood to be dropped. The time is limited as a whole: a client
// that sends a byte now and then must not keep a thread.
void ConnectionStream::Drain(std::size_t limit) {
  const auto end = steady_clock::now() + milliseconds(timeoutMs_);
  std::array<char, kMaxRecord> dropped;
  ssize_t count = 1;
  for (std::size_t sum = 0; count > 0 && sum < limit; sum += static_cast<std::size_t>(count)) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now()).count();
    if (left <= 0 || !WaitFor(handle_, POLLIN, static_cast<int>(left))) return;
    count = recv(handle_, dropped.data(), dropped.size(), 0);
  }
}

}  // namespace CryptStand

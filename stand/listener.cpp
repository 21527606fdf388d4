// The sockets and threads of a server: one thread accepts, each connection has its own. Threads that wait are
// woken by a shutdown of their socket, so that Down() returns at once. HttpServer and ForwardProxy serve the
// connections.
#include "stand/listener.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

constexpr int kBacklog = 128;  // connections that wait to be accepted
constexpr int kRetryMs = 20;   // between attempts to accept when no descriptor is free

}  // namespace

bool Listener::Bind(const std::string& address, int port, std::string& error) {
  address_ = address;
  reserved_ = Socket::Bind(address_, port, error);
  port_ = reserved_.IsOpen() ? reserved_.GetPort() : 0;
  return port_ != 0;
}

// A new listening socket each time. The reserved one cannot listen instead: it has to keep the port
// afterwards.
bool Listener::Up(std::string& error) {
  const std::lock_guard<std::mutex> lock(change_);
  if (up_) return true;
  listening_ = Socket::Bind(address_, port_, error);
  if (!listening_.IsOpen()) return false;
  wake_ = Socket(eventfd(0, EFD_CLOEXEC));
  if (!wake_.IsOpen() || listen(listening_.Get(), kBacklog) != 0) {
    error = "port " + std::to_string(port_) + ": " + std::generic_category().message(errno);
    listening_.Close();
    return false;
  }
  stopping_ = std::stop_source();
  try {
    acceptor_ = std::thread([this] { AcceptAll(); });
  } catch (const std::system_error& failure) {
    error = "port " + std::to_string(port_) + ": " + failure.what();
    listening_.Close();
    return false;
  }
  up_ = true;
  return true;
}

void Listener::Down() {
  const std::lock_guard<std::mutex> lock(change_);
  if (!up_) return;
  // The order matters: first no new connections, then an end to the existing ones, then their threads.
  const std::uint64_t signal = 1;
  if (write(wake_.Get(), &signal, sizeof signal) != sizeof signal) std::terminate();
  acceptor_.join();
  listening_.Close();
  stopping_.request_stop();
  // Taken out of the list, at which EndConnections() may look at any time. The threads are joined without
  // mutex_, which each of them takes at its end.
  std::list<Connection> ended;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ended.swap(connections_);
    for (const Connection& connection : ended) shutdown(connection.socket.Get(), SHUT_RDWR);
  }
  for (Connection& connection : ended) connection.thread.join();
  up_ = false;
}

void Listener::AcceptAll() {
  while (true) {
    pollfd entries[] = {{wake_.Get(), POLLIN, 0}, {listening_.Get(), POLLIN, 0}};
    if (poll(entries, 2, -1) < 0 && errno != EINTR) return;
    if (entries[0].revents != 0) return;
    if (entries[1].revents == 0) continue;
    Socket socket(accept4(listening_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    Reap();
    if (socket.IsOpen()) {
      Admit(std::move(socket));
    } else {
      // Most likely out of descriptors. The connection still waits, so poll() would return at once: pause.
      poll(entries, 1, kRetryMs);
    }
  }
}

// Writes before it reads: a connection sets `isIdle` and then reads `isLast`, this is the reverse. So at
// least one of the two sees what the other has set.
void Listener::EndConnections() {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (Connection& connection : connections_) {
    connection.state.isLast = true;
    if (connection.state.isIdle) shutdown(connection.socket.Get(), SHUT_RDWR);
  }
}

void Listener::Admit(Socket socket) {
  // Replies are written in several parts; waiting to combine them would delay each by tens of milliseconds.
  const int on = 1;
  setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::lock_guard<std::mutex> lock(mutex_);
  // A list, since the thread keeps a reference while other connections come and go.
  Connection& connection = connections_.emplace_back();
  connection.socket = std::move(socket);
  try {
    connection.thread = std::thread([this, &connection] { ServeOne(connection); });
  } catch (const std::system_error&) {
    connections_.pop_back();  // no thread available: the client sees its connection end
  }
}

void Listener::ServeOne(Connection& connection) {
  serve_(connection.socket.Get(), stopping_.get_token(), connection.state);
  // Not closed here: Down() may use the descriptor at the same time, and a closed one could already be
  // another connection. Reap() or Down() closes it after the join.
  shutdown(connection.socket.Get(), SHUT_RDWR);
  const std::lock_guard<std::mutex> lock(mutex_);
  connection.ended = true;
}

// Joins the threads of closed connections. Outside the lock, which each of them takes at its end.
void Listener::Reap() {
  std::list<Connection> ended;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto entry = connections_.begin(); entry != connections_.end();) {
      const auto next = std::next(entry);
      if (entry->ended) ended.splice(ended.end(), connections_, entry);
      entry = next;
    }
  }
  for (Connection& connection : ended) connection.thread.join();
}

}  // namespace CryptStand

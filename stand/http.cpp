// The sockets and threads of an HTTP server: one thread accepts, each connection has its own. Threads that
// wait are woken by a shutdown of their socket, so that Down() returns at once.
#include "stand/http.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <list>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "stand/http_connection.h"
#include "stand/socket.h"

namespace CryptStand {
namespace {

constexpr int kBacklog = 128;  // connections that wait to be accepted
constexpr int kRetryMs = 20;

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

// Percent-encoding (RFC 3986, 2.1). No value when an escape is malformed.
std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    plain += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return plain;
}

}  // namespace

std::vector<std::string> HttpRequest::HeaderValues(std::string_view name) const {
  std::vector<std::string> values;
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && strncasecmp(key.data(), name.data(), name.size()) == 0) {
      values.push_back(value);
    }
  }
  return values;
}

// Two headers of the type count as none: which of them to believe would be a guess.
std::string HttpRequest::ContentType() const {
  const auto types = HeaderValues("Content-Type");
  return types.size() == 1 ? types.front().substr(0, types.front().find(';')) : "";
}

std::optional<std::vector<std::string>> HttpRequest::PathSegments() const {
  std::vector<std::string> segments;
  std::string_view path = std::string_view(target).substr(0, target.find('?'));
  if (path.starts_with('/')) path.remove_prefix(1);
  while (true) {
    const std::size_t slash = path.find('/');
    auto segment = Unescape(path.substr(0, slash));
    if (!segment.has_value()) return std::nullopt;
    segments.push_back(*std::move(segment));
    if (slash == std::string_view::npos) return segments;
    path.remove_prefix(slash + 1);
  }
}

std::optional<OruGuiBase::KVMap> HttpRequest::QueryMembers() const {
  OruGuiBase::KVMap members;
  const std::size_t mark = target.find('?');
  std::string_view query = mark == std::string::npos ? "" : std::string_view(target).substr(mark + 1);
  while (!query.empty()) {
    const std::string_view member = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(member.size() + 1, query.size()));
    const std::size_t equals = std::min(member.find('='), member.size());
    std::string text(member.substr(std::min(equals + 1, member.size())));
    std::replace(text.begin(), text.end(), '+', ' ');
    const auto name = Unescape(member.substr(0, equals));
    const auto value = Unescape(text);
    if (!name.has_value() || !value.has_value() || members.Contains(*name)) return std::nullopt;
    members.Set(OruGuiBase::AnsiStr(*name), OruGuiBase::Val(OruGuiBase::AnsiStr(*value)));
  }
  return members;
}

class HttpServer::Impl {
 public:
  Impl(HttpHandler handler, HttpTimeouts timeouts) : handler_(std::move(handler)), timeouts_(timeouts) {}
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() { Down(); }

  bool Bind(int port, std::string& error);
  int GetPort() const { return port_; }
  bool Up(std::string& error);
  void Down();
  bool IsUp() const { return up_; }
  void Secure(TlsSource source) { tls_ = std::move(source); }
  void EndConnections();

 private:
  struct Connection {
    Socket socket;
    ConnectionState state;
    std::thread thread;
    bool ended = false;  // guarded by mutex_
  };

  void AcceptAll();
  void Serve(Connection& connection);
  void Admit(Socket socket);
  void Reap();

  HttpHandler handler_;
  HttpTimeouts timeouts_;
  TlsSource tls_;
  int port_ = 0;
  Socket reserved_;  // keeps the port bound while the server is down; never listens
  Socket listening_;
  Socket wake_;
  std::thread acceptor_;
  std::stop_source stopping_;
  std::atomic<bool> up_ = false;
  std::mutex change_;  // one Up or Down at a time
  std::mutex mutex_;
  std::list<Connection> connections_;  // guarded by mutex_
};

bool HttpServer::Impl::Bind(int port, std::string& error) {
  reserved_ = Socket::BindLoopback(port, error);
  port_ = reserved_.IsOpen() ? reserved_.GetPort() : 0;
  return port_ != 0;
}

// A new listening socket each time. The reserved one cannot listen instead: it has to keep the port
// afterwards.
bool HttpServer::Impl::Up(std::string& error) {
  const std::lock_guard<std::mutex> lock(change_);
  if (up_) return true;
  listening_ = Socket::BindLoopback(port_, error);
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

void HttpServer::Impl::Down() {
  const std::lock_guard<std::mutex> lock(change_);
  if (!up_) return;
  // The order matters: first no new connections, then an end to the existing ones, then their threads.
  const std::uint64_t signal = 1;
  if (write(wake_.Get(), &signal, sizeof signal) != sizeof signal) std::terminate();
  acceptor_.join();
  listening_.Close();
  stopping_.request_stop();
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const Connection& connection : connections_) shutdown(connection.socket.Get(), SHUT_RDWR);
  }
  // Without mutex_, which each thread takes at its end. The acceptor has ended, so nobody else changes the
  // list.
  for (Connection& connection : connections_) connection.thread.join();
  connections_.clear();
  up_ = false;
}

void HttpServer::Impl::AcceptAll() {
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

// The order of flag and look matters: a connection sets its own flag and then looks at `isLast`, so at least
// one of the two sides sees the other.
void HttpServer::Impl::EndConnections() {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (Connection& connection : connections_) {
    connection.state.isLast = true;
    if (connection.state.isIdle) shutdown(connection.socket.Get(), SHUT_RDWR);
  }
}

void HttpServer::Impl::Admit(Socket socket) {
  // Replies are written in several parts; waiting to combine them would delay each by tens of milliseconds.
  const int on = 1;
  setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::lock_guard<std::mutex> lock(mutex_);
  // A list, since the thread keeps a reference while other connections come and go.
  Connection& connection = connections_.emplace_back();
  connection.socket = std::move(socket);
  try {
    connection.thread = std::thread([this, &connection] { Serve(connection); });
  } catch (const std::system_error&) {
    connections_.pop_back();  // no thread available: the client sees its connection end
  }
}

void HttpServer::Impl::Serve(Connection& connection) {
  ServeConnection(connection.socket.Get(), {handler_, timeouts_, tls_, stopping_.get_token()},
                  connection.state);
  // Not closed here: Down() may use the descriptor at the same time, and a closed one could already be
  // another connection. Reap() or Down() closes it after the join.
  shutdown(connection.socket.Get(), SHUT_RDWR);
  const std::lock_guard<std::mutex> lock(mutex_);
  connection.ended = true;
}

// Joins the threads of closed connections. Outside the lock, which each of them takes at its end.
void HttpServer::Impl::Reap() {
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

HttpServer::HttpServer(HttpHandler handler, HttpTimeouts timeouts)
    : impl_(std::make_unique<Impl>(std::move(handler), timeouts)) {}
HttpServer::~HttpServer() = default;
void HttpServer::Secure(TlsSource source) {
  impl_->Secure(std::move(source));
}
void HttpServer::EndConnections() {
  impl_->EndConnections();
}
bool HttpServer::Bind(int port, std::string& error) {
  return impl_->Bind(port, error);
}
int HttpServer::GetPort() const {
  return impl_->GetPort();
}
bool HttpServer::Up(std::string& error) {
  return impl_->Up(error);
}
void HttpServer::Down() {
  impl_->Down();
}
bool HttpServer::IsUp() const {
  return impl_->IsUp();
}

}  // namespace CryptStand

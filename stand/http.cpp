#include "stand/http.h"

#include <atomic>
#include <cerrno>
#include <httplib.h>
#include <list>
#include <mutex>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "stand/socket.h"

namespace CryptStand {
namespace {

constexpr std::size_t kMaxBody = 16U << 20U;
constexpr int kBacklog = 128;

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

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

// The HTTP engine's view of a connection. It asks for addresses without using them.
class EngineStream : public httplib::Stream {
 public:
  EngineStream(const ConnectionStream& bytes, int handle) : bytes_(bytes), handle_(handle) {}

  bool is_readable() const override { return true; }
  bool is_writable() const override { return true; }
  ssize_t read(char* buffer, size_t size) override { return bytes_.Read(buffer, size); }
  ssize_t write(const char* data, size_t size) override {
    iovec part = {const_cast<char*>(data), size};
    return bytes_.Write(&part, 1);
  }
  void get_remote_ip_and_port(std::string& ip, int& port) const override { ip.clear(), port = 0; }
  void get_local_ip_and_port(std::string& ip, int& port) const override { ip.clear(), port = 0; }
  socket_t socket() const override { return handle_; }

 private:
  const ConnectionStream& bytes_;
  int handle_;
};

// Whether the answer under way on this thread ended inside its body. The engine would keep such a connection,
// and the other side would wait for the rest.
thread_local bool wasCut = false;

// Parses requests and writes answers. Sockets and threads are ours, so that a server can go down at once.
class Engine : public httplib::Server {
 public:
  explicit Engine(const Handler& handler) {
    const char* every = R"([\s\S]*)";
    Get(every, handler).Post(every, handler).Put(every, handler).Patch(every, handler);
    Delete(every, handler).Options(every, handler);
    set_payload_max_length(kMaxBody);
  }

  /// The engine sends no more than headers while it believes that no socket listens.
  void SetListening(int handle) { svr_sock_ = handle; }

  /// False when the connection is to be closed.
  bool ServeOne(httplib::Stream& stream) {
    bool closed = false;
    wasCut = false;
    return process_request(stream, false, closed, nullptr) && !closed && !wasCut;
  }
};

HttpRequest ReadRequest(const httplib::Request& from) {
  return {from.method, from.target, from.body, {from.headers.begin(), from.headers.end()}};
}

// Sends the next piece; false when the connection has to end.
bool SendPiece(const BodySource& next, std::optional<std::size_t>& left, httplib::DataSink& sink) {
  const std::string piece = next();
  const bool isCut = left.has_value() && (piece.empty() || *left <= piece.size());
  if (isCut) {
    sink.write(piece.data(), std::min(*left, piece.size()));
    return false;
  }
  if (left.has_value()) *left -= piece.size();
  if (piece.empty()) sink.done();
  return piece.empty() || sink.write(piece.data(), piece.size());
}

void WriteStream(const HttpReply& from, httplib::Response& to) {
  to.set_chunked_content_provider(from.contentType, [next = from.openBody(), left = from.cutAfter](
                                                        std::size_t, httplib::DataSink& sink) mutable {
    try {
      wasCut = !SendPiece(next, left, sink);
    } catch (const std::exception&) {
      wasCut = true;  // the other side sees a body without an end
    }
    return !wasCut;
  });
}

void WriteReply(HttpReply from, httplib::Response& to) {
  to.status = from.status;
  for (const auto& [name, value] : from.headers) to.set_header(name, value);
  if (from.openBody) return WriteStream(from, to);
  if (!from.cutAfter.has_value()) {
    to.set_content(from.body, from.contentType);
    return;
  }
  const std::size_t size = from.body.size();
  to.set_content_provider(
      size, from.contentType,
      [body = std::move(from.body), cut = *from.cutAfter](std::size_t, std::size_t, httplib::DataSink& sink) {
        sink.write(body.data(), std::min(cut, body.size()));
        wasCut = true;
        return false;
      });
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

class HttpServer::Impl {
 public:
  Impl(HttpHandler handler, HttpTimeouts timeouts)
      : handler_(std::move(handler)),
        timeouts_(timeouts),
        engine_([this](const httplib::Request& request, httplib::Response& response) {
          WriteReply(handler_(ReadRequest(request), stopping_.get_token()), response);
        }) {}
  ~Impl() { Down(); }

  bool Bind(int port, std::string& error);
  int GetPort() const { return port_; }
  bool Up(std::string& error);
  void Down();
  bool IsUp() const { return up_; }

 private:
  struct Connection {
    Socket socket;
    std::thread thread;
    bool ended = false;  // guarded by mutex_
  };

  void AcceptAll();
  void Serve(Connection& connection);
  void Admit(Socket socket);
  void Reap();

  HttpHandler handler_;
  HttpTimeouts timeouts_;
  Engine engine_;
  int port_ = 0;
  Socket reserved_;  // holds the port and never listens
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
  engine_.SetListening(listening_.Get());
  up_ = true;
  acceptor_ = std::thread([this] { AcceptAll(); });
  return true;
}

void HttpServer::Impl::Down() {
  const std::lock_guard<std::mutex> lock(change_);
  if (!up_) return;
  const std::uint64_t signal = 1;
  if (write(wake_.Get(), &signal, sizeof signal) != sizeof signal) std::terminate();
  acceptor_.join();
  engine_.SetListening(INVALID_SOCKET);
  listening_.Close();
  stopping_.request_stop();
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const Connection& connection : connections_) shutdown(connection.socket.Get(), SHUT_RDWR);
  }
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
    if (socket.IsOpen()) Admit(std::move(socket));
  }
}

void HttpServer::Impl::Admit(Socket socket) {
  const int on = 1;
  setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::lock_guard<std::mutex> lock(mutex_);
  Connection& connection = connections_.emplace_back();
  connection.socket = std::move(socket);
  try {
    connection.thread = std::thread([this, &connection] { Serve(connection); });
  } catch (const std::system_error&) {
    connections_.pop_back();  // no thread to be had: the caller sees its connection end
  }
}

void HttpServer::Impl::Serve(Connection& connection) {
  const ConnectionStream bytes(connection.socket.Get(), timeouts_.transferMs);
  EngineStream stream(bytes, connection.socket.Get());
  while (!stopping_.stop_requested() && bytes.WaitForData(timeouts_.idleMs) && engine_.ServeOne(stream)) {
  }
  shutdown(connection.socket.Get(), SHUT_RDWR);
  const std::lock_guard<std::mutex> lock(mutex_);
  connection.ended = true;
}

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

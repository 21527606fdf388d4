// An HTTP server on sockets that leaves every byte to a test: servers that break the rules cannot be built
// from one that keeps them.
#include "tests/transport/raw_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace TestSupport {

namespace {

std::string Trim(std::string text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\r')) text.pop_back();
  return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

void ParseHead(const std::string& head, RecordedRequest& request) {
  std::size_t line = head.find("\r\n");
  const std::string first = head.substr(0, line);
  const std::size_t target = first.find(' ') + 1;
  request.method = first.substr(0, target - 1);
  request.url = first.substr(target, first.rfind(' ') - target);
  while (line != std::string::npos && line + 2 < head.size()) {
    const std::size_t start = line + 2;
    line = head.find("\r\n", start);
    const std::string text = head.substr(start, line - start);
    const std::size_t colon = text.find(':');
    if (colon != std::string::npos)
      request.headers.emplace_back(text.substr(0, colon), Trim(text.substr(colon + 1)));
  }
}

}  // namespace

bool RawConnection::Fill() {
  char bytes[16384];
  const ssize_t count = recv(socket_, bytes, sizeof(bytes), 0);
  if (count > 0) buffer_.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

bool RawConnection::ReadHead(RecordedRequest& request) {
  std::size_t end = 0;
  while ((end = buffer_.find("\r\n\r\n")) == std::string::npos) {
    if (!Fill()) return false;
  }
  request = {};
  ParseHead(buffer_.substr(0, end), request);
  buffer_.erase(0, end + 4);
  return true;
}

bool RawConnection::ReadRequest(RecordedRequest& request) {
  if (!ReadHead(request)) return false;
  const std::string length = HeaderOf(request, "Content-Length");
  const std::size_t size = length == "(none)" ? 0 : std::strtoul(length.c_str(), nullptr, 10);
  while (buffer_.size() < size) {
    if (!Fill()) return false;
  }
  request.body = buffer_.substr(0, size);
  buffer_.erase(0, size);
  return true;
}

bool RawConnection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool RawConnection::Respond(std::uint32_t status, std::string_view body, std::string_view headers) {
  return Send("HTTP/1.1 " + std::to_string(status) + " Words\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n" + std::string(headers) + "\r\n" + std::string(body));
}

void RawConnection::WaitForEnd() {
  while (Fill()) {
  }
}

void RawConnection::Close() {
  const std::lock_guard lock(mutex_);
  const int socket = socket_.exchange(-1);
  if (socket >= 0) close(socket);
}

void RawConnection::Reset() {
  const linger now{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  Close();
}

void RawConnection::Interrupt() noexcept {
  const std::lock_guard lock(mutex_);
  const int socket = socket_;
  if (socket >= 0) shutdown(socket, SHUT_RDWR);
}

RawServer::RawServer(Handler handler) : handler_(std::move(handler)), listener_(ListenOnLoopback(port_)) {
  acceptor_ = std::thread([this] { Accept(); });
}

RawServer::~RawServer() {
  stopped_ = true;
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  close(listener_);
  for (const auto& connection : connections_) connection->Interrupt();
  for (std::thread& thread : threads_) thread.join();
}

void RawServer::Accept() {
  while (!stopped_) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    const std::lock_guard lock(mutex_);
    connections_.push_back(std::make_unique<RawConnection>(socket, connections_.size()));
    // The connection stays open after its handler returns: a handler that wants it closed closes it.
    threads_.emplace_back([this, connection = connections_.back().get()] { handler_(*connection); });
  }
}

std::string RawServer::Authority() const {
  return "127.0.0.1:" + std::to_string(port_);
}

std::string RawServer::Url(std::string_view path) const {
  return "http://" + Authority() + std::string(path);
}

std::size_t RawServer::GetConnectionCount() const {
  const std::lock_guard lock(mutex_);
  return connections_.size();
}

RawServer::Handler RespondToAll(std::function<void(RawConnection&, const RecordedRequest&)> response) {
  return [response = std::move(response)](RawConnection& connection) {
    RecordedRequest request;
    while (connection.ReadRequest(request)) response(connection, request);
  };
}

int ListenOnLoopback(int& port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  const bool made = bind(listener, generic, size) == 0 && listen(listener, 64) == 0 &&
                    getsockname(listener, generic, &size) == 0;
  EXPECT_TRUE(made) << "no loopback port";
  port = ntohs(address.sin_port);
  return listener;
}

int UnusedPort() {
  int port = 0;
  close(ListenOnLoopback(port));
  return port;
}

}  // namespace TestSupport

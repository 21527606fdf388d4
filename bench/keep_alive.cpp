// The clients of stand_bench. Not libcurl: its own work would be a large part of what is measured.
#include "bench/keep_alive.h"

#include <cstdint>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Bench {

KeepAlive::KeepAlive(const std::string& url) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in server = {};
  server.sin_family = AF_INET;
  server.sin_port = htons(static_cast<std::uint16_t>(std::atoi(url.c_str() + url.rfind(':') + 1)));
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // A request goes out at once: Nagle's algorithm would wait for the response to the one before.
  const int on = 1;
  ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  // Shut down, a socket without a connection makes each request fail, which the caller notices.
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0)
    ::shutdown(socket_, SHUT_RDWR);
}

KeepAlive::~KeepAlive() {
  ::close(socket_);
}

std::string KeepAlive::Get(const std::string& path) {
  return Exchange("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
}

std::string KeepAlive::Post(const std::string& path, const std::string& body, const std::string& token) {
  const std::string header = token.empty() ? "" : "X-SEC-AUTHZTOKEN: " + token + "\r\n";
  return Exchange("POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/json\r\n" + header +
                  "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

std::string KeepAlive::Exchange(const std::string& request) {
  if (::send(socket_, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
    return {};
  std::string response;
  std::size_t head = std::string::npos;
  std::size_t size = 0;
  char bytes[16384];
  while (head == std::string::npos || response.size() < head + size) {
    const ssize_t count = ::recv(socket_, bytes, sizeof bytes, 0);
    if (count <= 0) return {};
    response.append(bytes, static_cast<std::size_t>(count));
    const std::size_t end = response.find("\r\n\r\n");
    if (head != std::string::npos || end == std::string::npos) continue;
    head = end + 4;
    const std::size_t length = response.find("Content-Length: ");
    if (length >= end) return {};
    size = std::strtoul(response.c_str() + length + 16, nullptr, 10);
  }
  return response.substr(head);
}

}  // namespace Bench

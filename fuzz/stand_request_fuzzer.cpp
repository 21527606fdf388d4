// Feeds bytes to a server of the test environment as one connection, which may have several requests, and
// looks at what the handler gets and at what is sent back.
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/socket.h>

#include "fuzz/support/require.h"
#include "fuzz/support/text.h"
#include "stand/http_connection.h"
#include "stand/socket.h"

namespace {

using CryptStand::HttpReply;
using CryptStand::HttpRequest;
using Fuzz::Require;

// Small enough for the socket's buffer, so that the server, which runs on this thread, never waits for a
// reader.
constexpr std::size_t kMaxInput = 4096;
// Never reached, since all bytes are there before the server reads.
constexpr CryptStand::HttpTimeouts kTimeouts = {1000, 1000};

bool IsOneLine(std::string_view text) {
  return text.find_first_of("\r\n") == std::string_view::npos;
}

HttpReply Respond(const HttpRequest& request, const std::stop_token&) {
  Require(!request.method.empty() && IsOneLine(request.method), "a request has a method");
  Require(!request.target.empty() && IsOneLine(request.target), "a request has a target");
  for (const auto& [name, value] : request.headers) {
    Require(!name.empty() && IsOneLine(name) && IsOneLine(value), "a header is one line");
  }
  const auto path = request.PathSegments();
  Require(!path.has_value() || !path->empty(), "a path has a segment");
  const auto query = request.QueryMembers();
  Require(!query.has_value() || query->GetCount() <= request.target.size(), "a query has no made-up members");
  HttpReply reply;
  reply.headers.emplace_back("X-Type", request.ContentType());
  reply.body = std::to_string(request.body.size());
  return reply;
}

void Serve(int socket) {
  CryptStand::ConnectionState state;
  const CryptStand::HttpHandler handler = &Respond;
  const CryptStand::TlsSource noTls;
  CryptStand::ServeConnection(socket, {handler, kTimeouts, noTls, std::stop_token()}, state);
}

std::string ReadAll(int socket) {
  std::string all;
  std::array<char, 4096> part = {};
  ssize_t count = recv(socket, part.data(), part.size(), MSG_DONTWAIT);
  for (; count > 0; count = recv(socket, part.data(), part.size(), MSG_DONTWAIT)) {
    all.append(part.data(), static_cast<std::size_t>(count));
  }
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  int pair[2] = {-1, -1};
  Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0, "sockets can be made");
  const CryptStand::Socket client(pair[0]);
  const CryptStand::Socket server(pair[1]);
  Require(send(client.Get(), data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size),
          "the input can be sent");
  // The server sees the end of the connection after the input and does not wait for more.
  shutdown(client.Get(), SHUT_WR);
  Serve(server.Get());
  const std::string sent = ReadAll(client.Get());
  Require(sent.empty() || sent.starts_with("HTTP/1."), "what is sent is a response");
  return 0;
}

#include "tests/stand/raw_peer.h"

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace CryptStand {
namespace {

constexpr int kPatienceMs = 20000;

}  // namespace

RawPeer::RawPeer(int port, const char* address) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in server = {};
  server.sin_family = AF_INET;
  server.sin_port = htons(static_cast<std::uint16_t>(port));
  server.sin_addr.s_addr = inet_addr(address);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) Close();
}

bool RawPeer::Send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void RawPeer::EndWriting() const {
  shutdown(socket_, SHUT_WR);
}

void RawPeer::Close() {
  if (socket_ >= 0) close(std::exchange(socket_, -1));
}

std::string RawPeer::ReadUntil(std::string_view end) {
  char bytes[16384];
  hasEnded_ = false;
  std::size_t found = std::string::npos;
  while (end.empty() || (found = ahead_.find(end)) == std::string::npos) {
    pollfd entry = {socket_, POLLIN, 0};
    const ssize_t count = poll(&entry, 1, kPatienceMs) > 0 ? recv(socket_, bytes, sizeof bytes, 0) : -1;
    hasEnded_ = count == 0;
    if (count <= 0) return std::exchange(ahead_, "");
    ahead_.append(bytes, static_cast<std::size_t>(count));
  }
  std::string text = ahead_.substr(0, found + end.size());
  ahead_.erase(0, text.size());
  return text;
}

}  // namespace CryptStand

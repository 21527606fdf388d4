#include "tests/stand/notify_socket.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace CryptStand {

NotifySocket::NotifySocket(const std::string& name, bool keepsVariable)
    : keepsVariable_(keepsVariable), handle_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  EXPECT_LT(name.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, name.data(), name.size());
  if (name.starts_with('@')) address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  EXPECT_EQ(bind(handle_, reinterpret_cast<const sockaddr*>(&address), size), 0) << name;
  setenv("NOTIFY_SOCKET", name.c_str(), 1);
}

NotifySocket::~NotifySocket() {
  close(handle_);
  if (!keepsVariable_) unsetenv("NOTIFY_SOCKET");
}

std::string NotifySocket::Receive() const {
  constexpr int kPatienceMs = 30000;
  pollfd entry = {handle_, POLLIN, 0};
  char text[256];
  const ssize_t size = poll(&entry, 1, kPatienceMs) > 0 ? recv(handle_, text, sizeof text, 0) : -1;
  return size >= 0 ? std::string(text, static_cast<std::size_t>(size)) : "(none)";
}

}  // namespace CryptStand

// Called by the program when it is ready and when it stops. Written out here, since it is one datagram: a
// library for it would be a dependency of everything that uses the test environment.
#include "stand/ready_notification.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

#include "foundation/errno_saver.h"

namespace CryptStand {
namespace {

// A manager that does not read its socket must not keep the servers from starting or stopping.
constexpr timeval kPatience = {2, 0};

// A path, or a name after "@" in Linux's abstract namespace, where a zero byte stands for the "@". 0 if it is
// neither or too long, otherwise the size of the address.
socklen_t ReadAddress(std::string_view name, sockaddr_un& address) {
  address.sun_family = AF_UNIX;
  const bool isAbstract = name.starts_with('@');
  if ((!isAbstract && !name.starts_with('/')) || name.size() < 2 || name.size() >= sizeof address.sun_path)
    return 0;
  std::memcpy(address.sun_path, name.data(), name.size());
  if (isAbstract) address.sun_path[0] = '\0';
  // Without a final zero byte: in an abstract name it would count.
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
}

bool SendDatagram(const std::string& text, const sockaddr_un& address, socklen_t size) {
  const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sender < 0) return false;
  setsockopt(sender, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  const ssize_t sent = sendto(sender, text.data(), text.size(), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&address), size);
  const OruGuiBase::ErrnoSaver saver;
  close(sender);
  return sent == static_cast<ssize_t>(text.size());
}

}  // namespace

bool NotifyServiceManager(const std::string& state, std::string& error) {
  const char* name = std::getenv("NOTIFY_SOCKET");
  if (name == nullptr || *name == '\0') return true;
  sockaddr_un address = {};
  const socklen_t size = ReadAddress(name, address);
  errno = EINVAL;
  if (size != 0 && SendDatagram(state, address, size)) return true;
  error = std::string("$NOTIFY_SOCKET (") + name + "): " + std::generic_category().message(errno);
  return false;
}

}  // namespace CryptStand

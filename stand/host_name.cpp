// Names and addresses in options, URLs, headers and certificates. IPv6 is in brackets in some
// of them and not in others.
#include "stand/host_name.h"

#include <arpa/inet.h>

#include "stand/socket.h"

namespace CryptStand {
namespace {

// Names of containers may have an underscore.
constexpr const char* kHostCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

}  // namespace

bool IsHost(const std::string& text) {
  if (text.empty()) return false;
  return text.find_first_not_of(kHostCharacters) == std::string::npos || IsIpAddress(text);
}

std::string HostInUrl(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

std::string WithoutBrackets(const std::string& host) {
  const bool hasBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  const std::string inner = hasBrackets ? host.substr(1, host.size() - 2) : host;
  return inner.find(':') == std::string::npos ? host : inner;
}

std::vector<std::string> HostHeaders(const std::string& host) {
  const std::string plain = WithoutBrackets(host);
  std::vector<std::string> forms = {HostInUrl(plain)};
  in6_addr address = {};
  char shortest[INET6_ADDRSTRLEN];
  if (inet_pton(AF_INET6, plain.c_str(), &address) == 1 &&
      inet_ntop(AF_INET6, &address, shortest, sizeof shortest) != nullptr) {
    forms.push_back(HostInUrl(shortest));
  }
  return forms;
}

}  // namespace CryptStand

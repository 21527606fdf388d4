// The checks that keep web pages of others away from the control interface. The header says against what.
#include "stand/control_access.h"

#include <algorithm>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <strings.h>

namespace CryptStand {
namespace {

bool IsSame(const std::string& left, const std::string& right) {
  return strcasecmp(left.c_str(), right.c_str()) == 0;
}

// Without the port. An IPv6 address is in brackets (RFC 9110, 7.2), so that its colons are not the port's.
std::string HostWithoutPort(const std::string& host) {
  const std::size_t from = host.starts_with('[') ? host.find(']') : 0;
  return from == std::string::npos ? host : host.substr(0, host.find(':', from));
}

ControlError Forbidden(std::string message) {
  return {.status = 403, .code = "forbidden", .message = std::move(message)};
}

}  // namespace

ControlAccess::ControlAccess(std::string token, std::vector<std::string> hosts)
    : token_(std::move(token)), hosts_(std::move(hosts)) {
  for (const char* loopback : {"127.0.0.1", "localhost", "[::1]"}) hosts_.emplace_back(loopback);
}

std::optional<ControlError> ControlAccess::RefuseForeign(const HttpRequest& request) const {
  const auto hosts = request.HeaderValues("Host");
  if (hosts.size() != 1) return Forbidden("The request must have one Host header");
  const std::string name = HostWithoutPort(hosts.front());
  if (std::none_of(hosts_.begin(), hosts_.end(), [&](const auto& known) { return IsSame(known, name); })) {
    return Forbidden("The Host header names another machine; --allow-host NAME allows it");
  }
  for (const std::string& origin : request.HeaderValues("Origin")) {
    if (!IsSame(origin, "http://" + hosts.front()) && !IsSame(origin, "https://" + hosts.front())) {
      return Forbidden("The request comes from a page of another origin");
    }
  }
  return std::nullopt;
}

// The time of the comparison does not depend on how many characters agree.
bool ControlAccess::HasToken(const HttpRequest& request) const {
  constexpr std::string_view kScheme = "Bearer ";
  const auto values = request.HeaderValues("Authorization");
  if (values.size() != 1 || token_.empty()) return false;
  const std::string& value = values.front();
  if (value.size() != kScheme.size() + token_.size()) return false;
  const bool isBearer = strncasecmp(value.data(), kScheme.data(), kScheme.size()) == 0;
  return isBearer && CRYPTO_memcmp(value.data() + kScheme.size(), token_.data(), token_.size()) == 0;
}

std::string ControlAccess::MakeToken() {
  unsigned char bytes[16];
  if (RAND_bytes(bytes, sizeof bytes) != 1) return {};
  return ToHex({reinterpret_cast<const char*>(bytes), sizeof bytes});
}

HttpReply TokenMissing() {
  HttpReply reply =
      ErrorReply({.status = 401,
                  .code = "unauthorized",
                  .message = "The header \"Authorization: Bearer TOKEN\" is missing or has another "
                             "token; the token is in the file control-token of the folder and in "
                             "the file of --url-file"});
  reply.headers.emplace_back("WWW-Authenticate", "Bearer");
  return reply;
}

}  // namespace CryptStand

// Checks of single values, which the parser of the command line calls. Stand checks its options again where
// they are used, since tests pass them without a command line.
#include "stand/argument_checks.h"

#include <charconv>
#include <cstdint>
#include <openssl/err.h>
#include <openssl/pem.h>

#include "stand/host_name.h"
#include "stand/memory_bio.h"
#include "stand/required_headers.h"
#include "stand/server_tls.h"
#include "stand/socket.h"
#include "stand/text_file.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

// Those of a bearer token (RFC 6750, 2.1).
constexpr const char* kTokenLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=";

}  // namespace

// Stand without a folder keeps nothing, which nobody asks for with a variable that is not set.
std::string CheckFolder(const std::string& path) {
  return path.empty() ? "the folder must not be empty" : "";
}

std::string CheckListen(const std::string& address) {
  return IsIpAddress(address) ? "" : "\"" + address + "\" is not an IP address";
}

std::string CheckAnnounce(const std::string& host) {
  return IsHost(host) ? "" : "\"" + host + "\" is neither a name nor an IP address";
}

std::string CheckAllowedHost(const std::string& host) {
  return CheckAnnounce(WithoutBrackets(host));
}

std::string CheckRequiredHeader(const std::string& line) {
  return ParseRequiredHeader(line).has_value() ? "" : "the header must be of the form 'Name: value'";
}

std::string CheckRoom(const std::string& id) {
  return !id.empty() && IsUtf8(id) ? "" : "the room must be UTF-8 and not empty";
}

std::string CheckClientCa(const std::string& path) {
  if (path == kMakeClientCa) return {};
  std::string error;
  const auto authorities = ReadTextFile(path, error);
  if (!authorities.has_value()) return error;
  const Cert first(PEM_read_bio_X509(Source(*authorities).get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  return first.IsEmpty() ? path + ": no certificates in PEM" : "";
}

std::string CheckControlToken(const std::string& token) {
  const bool isToken = !token.empty() && token.find_first_not_of(kTokenLetters) == std::string::npos;
  return isToken ? "" : "the token must be letters, digits and -._~+/=";
}

// Up to what the control interface takes and shows, too: its JSON numbers are signed.
std::string CheckSeed(const std::string& number) {
  std::int64_t value = -1;
  const char* const end = number.data() + number.size();
  const auto [stop, failure] = std::from_chars(number.data(), end, value);
  const bool isWhole = failure == std::errc() && stop == end && value >= 0;
  return isWhole ? "" : "\"" + number + "\" is not an integer from 0 to 9223372036854775807";
}

}  // namespace CryptStand

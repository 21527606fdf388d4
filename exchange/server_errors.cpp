// The messages for the error codes of key servers, which come in a payload or, with an audit log, in a
// header.
#include <array>

#include "client/cryptcli.h"

namespace OruKalvix {
namespace {

constexpr std::int64_t kFirstCode = 601;  // The protocol numbers its errors from here without a gap.

// The reason of each code from kFirstCode on.
constexpr std::array<const char*, 19> kReasons = {
    "Invalid Payload",
    "Invalid Key Type",
    "Invalid Certificate",
    "Invalid Base64 Encoding",
    "Invalid Wrapped Key",
    "Keystore Unavailable",
    "Key Not Found",
    "Unsupported Algorithm",
    "Auth Failed",
    "Invalid License",
    "License Expired",
    "Auditlog Error",
    "Key Swap Error",
    "LDAP Error",
    "Key Generation Error",
    "CA Error",
    "External Tool Error",
    "Read-only State",
    "Service Temporary Unavailable",
};

const char* ReasonOf(std::int64_t code) noexcept {
  const std::int64_t index = code < kFirstCode ? -1 : code - kFirstCode;
  const bool known = index >= 0 && index < static_cast<std::int64_t>(kReasons.size());
  return known ? kReasons[static_cast<std::size_t>(index)] : "Unknown Error";
}

}  // namespace

void CryptClient::KeyServerErrorText(std::int64_t code) noexcept {
  SetError("%lld %s", static_cast<long long>(code), ReasonOf(code));
}

}  // namespace OruKalvix

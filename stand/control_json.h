#pragma once

#include <chrono>
#include <string_view>

#include "stand/wire.h"

namespace CryptStand {

/// A string of any bytes: those that are not UTF-8 are shown as U+FFFD, since JSON has no other way.
Val PrintableVal(std::string_view bytes);
/// ISO 8601 in UTC with milliseconds.
std::string TimeText(std::chrono::system_clock::time_point time);
/// "subject", "issuer", "serial", "notBefore", "notAfter" (ISO 8601 in UTC) and "digest" (SHA-256).
Val CertificateVal(const Cert& certificate);
/// A number that counts something.
Val CountVal(std::uint64_t count);

}  // namespace CryptStand

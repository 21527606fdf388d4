#pragma once

#include <string>
#include <string_view>

#include "stand/http.h"
#include "stand/wire.h"

namespace CryptStand {

/// The error that an application can distinguish from all others: the room is locked.
inline constexpr const char* kLockedErrorId = "QOB.1.1001.1.422645";
inline constexpr const char* kUnknownErrorId = "QOB.1.1001.1.404";
inline constexpr const char* kMalformedErrorId = "QOB.1.1001.1.400";
inline constexpr const char* kUnauthorisedErrorId = "QOB.1.1001.1.401";

/// A server's reply to a request before faults change it, with its entry for the event log.
struct Served {
  HttpReply reply;
  /// "ok", or the reason of the refusal.
  std::string outcome = "ok";
};

/// A refusal whose outcome is its error text.
inline Served RefusedWith(int status, std::string_view errorId, const std::string& errorText) {
  return {Refusal(status, errorId, errorText), errorText};
}

/// A refusal of the request's method; `allowed` goes into the "Allow" header (RFC 9110, 15.5.6).
inline Served WrongMethod(const char* allowed) {
  Served served = RefusedWith(405, kMalformedErrorId, "Method not allowed");
  served.reply.headers.emplace_back("Allow", allowed);
  return served;
}

}  // namespace CryptStand

#pragma once

#include <string>
#include <string_view>

#include "stand/http.h"
#include "stand/wire.h"

namespace CryptStand {

/// What a server made of a request, before faults.
struct Served {
  HttpReply reply;
  /// "ok", or why not, for the event log.
  std::string outcome = "ok";
};

/// A refusal whose outcome is its text.
inline Served RefusedWith(int status, std::string_view errorId, const std::string& errorText) {
  return {Refusal(status, errorId, errorText), errorText};
}

}  // namespace CryptStand

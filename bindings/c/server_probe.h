#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "bindings/c/operation.h"

namespace CryptCliC {

/// One GET request to a server and what the response shows about the server. A value.
struct ServerProbe {
  std::string message;  ///< why it failed, in the words of the class; empty for HTTP status 200
  std::uint32_t httpStatus = 0;
  OruGuiBase::AnsiStr body;
  std::uint32_t milliseconds = 0;
  OruGuiBase::AnsiStr date;                  ///< the "Date" header; empty without one
  std::optional<OruGuiBase::datetime> time;  ///< the same, if it is valid
  std::int64_t clockDifference = 0;          ///< seconds that `time` is ahead of the local clock
};

/// Sends a GET request as a step of the operation. `timeout` is in milliseconds; 0 for the client's own
/// limit.
ServerProbe ProbeServer(Operation& operation, const OruGuiBase::AnsiStr& url, std::uint32_t timeout);

}  // namespace CryptCliC

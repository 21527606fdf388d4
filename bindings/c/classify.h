#pragma once

#include <cstdint>
#include <string_view>

#include "bindings/c/include/cryptcli/cryptcli.h"

// From the messages of the class to status codes. No other place decides which status a message has.
namespace CryptCliC {

/// The exchange that failed last. Lends `reason` from the operation that recorded it.
struct FailedExchange {
  bool happened = false;
  bool hasResponse = false;     ///< false: the transport reported that there was no exchange
  bool isCryptService = false;  ///< false: a key server
  std::uint32_t status = 0;     ///< HTTP status, with a response
  std::string_view reason{};    ///< the transport's message, without one
  bool isKeyUpload = false;     ///< the crypt service was given a new room key
  /// Without a response: what the application's transport says about it.
  cryptcli_status failure = CRYPTCLI_UNREACHABLE;
};

/// The status for a message of the class. `exchange` counts only if its reason is the end of the message: the
/// failure can have another cause than the last exchange that failed.
cryptcli_status Classify(std::string_view message, const FailedExchange& exchange);
/// The status for an exchange that failed.
cryptcli_status ClassifyExchange(const FailedExchange& exchange);
/// Whether the same operation may succeed later without a change by anybody.
bool IsRetryable(cryptcli_status code, std::string_view message, const FailedExchange& exchange);

}  // namespace CryptCliC

#pragma once

#include <cstdint>
#include <string_view>

#include "bindings/c/include/cryptcli/cryptcli.h"

// From the system's messages to status codes: the one table.
namespace CryptCliC {

/// How the exchange ended that failed last.
struct FailedExchange {
  bool happened = false;
  bool hasResponse = false;     ///< false: the transport reported that there was no exchange
  bool isCryptService = false;  ///< false: a key server
  std::uint32_t status = 0;     ///< HTTP status, with a response
  std::string_view reason;      ///< the transport's message, without one
  bool isKeyUpload = false;     ///< the crypt service was given a new room key
  /// Without a response: what the application's transport says about it.
  cryptcli_status failure = CRYPTCLI_UNREACHABLE;
};

/// The status for a message of the class. `exchange` is consulted where the message ends in the reason of an
/// exchange.
cryptcli_status Classify(std::string_view message, const FailedExchange& exchange);
/// The status for an exchange that failed.
cryptcli_status ClassifyExchange(const FailedExchange& exchange);
/// Whether the same operation may succeed later without a change by anybody.
bool IsRetryable(cryptcli_status code, std::string_view message, const FailedExchange& exchange);

}  // namespace CryptCliC

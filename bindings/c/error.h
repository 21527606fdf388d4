#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bindings/c/include/cryptcli/cryptcli.h"

namespace CryptCliC {

/// A key server that failed during an operation.
struct Attempt {
  std::string server;  ///< scheme, host and port
  cryptcli_status code = CRYPTCLI_INTERNAL;
  std::string message;
  std::string base{};  ///< its whole base URL: servers of one origin can differ in the path
  bool retryable = false;
  std::uint32_t httpStatus = 0;  ///< 0 without a response
  std::string url{};             ///< of the exchange, without its query
};

/// Why an operation failed. A value; cryptcli_error is the same as an object for C.
struct Failure {
  cryptcli_status code = CRYPTCLI_INTERNAL;
  std::string message;
  bool retryable = false;        ///< the same call may succeed later although nobody changes anything
  std::uint32_t httpStatus = 0;  ///< of the last exchange that failed; 0 without a response
  std::string url;               ///< of that exchange, without its query
  std::vector<Attempt> attempts;
};

/// The error object of a failure, complete with UTF-8 strings and JSON, so that the getters cannot fail. Null
/// on allocation failure. The caller frees it with cryptcli_error_free.
cryptcli_error* MakeError(Failure failure) noexcept;

}  // namespace CryptCliC

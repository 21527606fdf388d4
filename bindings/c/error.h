#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bindings/c/include/cryptcli/cryptcli.h"

namespace CryptCliC {

/// One key server that was asked in vain.
struct Attempt {
  std::string server;  ///< base URL
  cryptcli_status code = CRYPTCLI_INTERNAL;
  std::string message;
};

/// Why an operation failed. A value; cryptcli_error is its handle for C.
struct Failure {
  cryptcli_status code = CRYPTCLI_INTERNAL;
  std::string message;
  bool retryable = false;
  std::uint32_t httpStatus = 0;
  std::string url;
  std::vector<Attempt> attempts;
};

/// The error object of a failure, made complete (UTF-8, JSON) so that getters cannot fail; null when no
/// memory is left.
cryptcli_error* MakeError(Failure failure) noexcept;

}  // namespace CryptCliC

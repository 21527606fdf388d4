#pragma once

#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "bindings/c/error.h"
#include "bindings/c/include/cryptcli/cryptcli.h"

// The boundary of the C interface, which every function that can fail runs inside: it catches exceptions and
// turns a failure into an error object for the caller.
namespace CryptCliC {

/// Stores the failure for the caller, unless `error` is null, and returns its status. On allocation failure
/// it stores null.
inline cryptcli_status Fail(cryptcli_error** error, Failure failure) noexcept {
  const cryptcli_status code = failure.code;
  if (error != nullptr) *error = MakeError(std::move(failure));
  return code;
}

inline cryptcli_status Fail(cryptcli_error** error, cryptcli_status code, std::string_view message) noexcept {
  try {
    Failure failure;
    failure.code = code;
    failure.message = message;
    return Fail(error, std::move(failure));
  } catch (...) {
    if (error != nullptr) *error = nullptr;
    return code;
  }
}

/// Runs `work`, which returns a status and stores its own failures. Our code throws only when the system
/// denies it memory or another resource, so an exception becomes CRYPTCLI_INTERNAL.
template <class Work>
cryptcli_status Guarded(cryptcli_error** error, Work work) noexcept {
  if (error != nullptr) *error = nullptr;
  try {
    return work();
  } catch (const std::exception& failure) {
    if (error != nullptr) cryptcli_error_free(*error);
    return Fail(error, CRYPTCLI_INTERNAL, failure.what());
  } catch (...) {
    if (error != nullptr) cryptcli_error_free(*error);
    return Fail(error, CRYPTCLI_INTERNAL, "Unknown exception");
  }
}

}  // namespace CryptCliC

#ifndef CRYPTCLI_DETAIL_OBJECTS_HPP
#define CRYPTCLI_DETAIL_OBJECTS_HPP

// Part of <cryptcli/cryptcli.hpp>, not for users: owners of the objects of the C interface, and values made
// from them.

#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <cstddef>
#include <memory>
#include <string_view>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {
namespace detail {

/// Frees an object of the C interface, as the deleter of Handle.
struct Free {
  void operator()(cryptcli_options* object) const noexcept { cryptcli_options_free(object); }
  void operator()(cryptcli_client* object) const noexcept { cryptcli_client_free(object); }
  void operator()(cryptcli_call* object) const noexcept { cryptcli_call_free(object); }
  void operator()(cryptcli_report* object) const noexcept { cryptcli_report_free(object); }
  void operator()(cryptcli_error* object) const noexcept { cryptcli_error_free(object); }
};
/// Owns an object of the C interface.
template <class Object>
using Handle = std::unique_ptr<Object, Free>;

/// The error that the C interface reports where it has no memory for an error object.
inline Unexpected NoMemory() {
  return Failure(Status::Internal, "no memory");
}

/// A C string would end at a NUL, and the library would work with another name than the caller gave.
inline bool HasNul(std::string_view text) {
  return text.find('\0') != std::string_view::npos;
}

/// A status that only a newer library knows is Internal.
inline Status ToStatus(cryptcli_status status) {
  const bool isKnown = status >= CRYPTCLI_OK && status <= CRYPTCLI_SERVER_ERROR;
  return isKnown ? static_cast<Status>(status) : Status::Internal;
}

/// An origin that only a newer library knows must not pass for a better one than it is.
inline Origin ToOrigin(cryptcli_origin origin) {
  const bool isKnown = origin >= CRYPTCLI_ORIGIN_UNSIGNED && origin <= CRYPTCLI_ORIGIN_PROVEN;
  return isKnown ? static_cast<Origin>(origin) : Origin::Unproven;
}

inline Report ToReport(const cryptcli_report* from, bool hasOrigin) {
  Report report;
  if (hasOrigin) report.origin = ToOrigin(cryptcli_report_origin(from));
  report.reason = cryptcli_report_reason(from);
  report.signedGroup = cryptcli_report_signed_group(from);
  report.signedRoom = cryptcli_report_signed_room(from);
  report.signedRoomUrl = cryptcli_report_signed_room_url(from);
  report.serviceGroup = cryptcli_report_service_group(from);
  report.serviceRoom = cryptcli_report_service_room(from);
  const std::size_t count = cryptcli_report_chain_count(from);
  for (std::size_t i = 0; i < count; ++i) report.chain.emplace_back(cryptcli_report_chain_subject(from, i));
  report.isPlainKey = cryptcli_report_is_plain_key(from) != 0;
  report.bytes = cryptcli_report_bytes(from);
  report.json = cryptcli_report_json(from);
  return report;
}

/// `from` is null if there was no memory for an error; so the code comes from `status`.
inline Error ToError(cryptcli_status status, const cryptcli_error* from) {
  Error error;
  error.code = ToStatus(status);
  error.message = cryptcli_error_message(from);
  error.retryable = cryptcli_error_is_retryable(from) != 0;
  error.httpStatus = cryptcli_error_http_status(from);
  error.url = cryptcli_error_url(from);
  const std::size_t count = cryptcli_error_attempt_count(from);
  for (std::size_t i = 0; i < count; ++i) {
    error.attempts.push_back({cryptcli_error_attempt_server(from, i),
                              ToStatus(cryptcli_error_attempt_code(from, i)),
                              cryptcli_error_attempt_message(from, i)});
  }
  error.json = cryptcli_error_json(from);
  return error;
}

}  // namespace detail
}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_DETAIL_OBJECTS_HPP

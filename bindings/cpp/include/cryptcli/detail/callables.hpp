#ifndef CRYPTCLI_DETAIL_CALLABLES_HPP
#define CRYPTCLI_DETAIL_CALLABLES_HPP

// Part of <cryptcli/cryptcli.hpp>, not for users: the C callbacks that call the callables of the user. No
// exception may cross the C library.

#include <chrono>
#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/detail/objects.hpp>
#include <cryptcli/options.hpp>
#include <cryptcli/result.hpp>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {
namespace detail {

/// Replaces all but printable ASCII: nobody knows the encoding of what an exception says.
inline std::string Printable(std::string text) {
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text;
}

/// Runs `work`, which calls a callable of the user. False if that threw; `reason` is then what it said.
template <class Work>
bool Guard(const Work& work, std::string& reason) noexcept {
#if defined(__cpp_exceptions)
  try {
    work();
    return true;
  } catch (const std::exception& thrown) {
    try {
      reason = Printable(thrown.what());
    } catch (...) {
      reason.clear();
    }
  } catch (...) {
    reason.clear();
  }
  return false;
#else
  work();
  reason.clear();
  return true;
#endif
}

/// The message about a callable that threw an exception.
inline std::string Threw(std::string_view callable, std::string_view reason) {
  std::string message = "The " + std::string(callable) + " threw an exception";
  if (!reason.empty()) message.append(": ").append(reason);
  return message;
}

/// A C client and the callables that it refers to. The client is the last member, so it is destroyed first.
struct State {
  Log log;
  Transport transport;
  Handle<cryptcli_client> client;
};

/// The C callback of a log. `context` is a State, which outlives the C client.
inline void WriteLog(void* context, cryptcli_log_level level, const char* message) noexcept {
  const auto& log = static_cast<const State*>(context)->log;
  std::string reason;
  // Dropped: a log that fails must not fail the operation, and there is no other place to report it.
  (void)Guard([&] { log.write(static_cast<LogLevel>(level), message); }, reason);
}

/// Lends from the C request, which is valid during the call.
inline HttpRequest ToRequest(const cryptcli_request* from) {
  HttpRequest request;
  request.method = cryptcli_request_method(from);
  request.url = cryptcli_request_url(from);
  const std::size_t count = cryptcli_request_header_count(from);
  for (std::size_t i = 0; i < count; ++i) {
    request.headers.push_back(
        {cryptcli_request_header_name(from, i), cryptcli_request_header_value(from, i)});
  }
  std::size_t size = 0;
  const auto* const body = static_cast<const char*>(cryptcli_request_body(from, &size));
  request.body = std::string_view(body, size);
  request.connectTimeout = std::chrono::milliseconds(cryptcli_request_connect_timeout(from));
  request.timeout = std::chrono::milliseconds(cryptcli_request_timeout(from));
  return request;
}

/// False if the response is not valid: a status out of range, a header with a NUL byte, a body too long.
inline bool Fill(cryptcli_response* response, const HttpResponse& from) {
  if (cryptcli_response_set_status(response, from.status) != 0) return false;
  for (const Header& header : from.headers) {
    if (header.name.find('\0') != std::string::npos || header.value.find('\0') != std::string::npos)
      return false;
    if (cryptcli_response_add_header(response, header.name.c_str(), header.value.c_str()) != 0) return false;
  }
  return cryptcli_response_append_body(response, from.body.data(), from.body.size()) == 0;
}

/// The C callback of a transport. `context` is a State, which outlives the C client.
inline std::int32_t SendRequest(void* context, const cryptcli_request* request,
                                cryptcli_response* response) noexcept {
  const auto& transport = static_cast<const State*>(context)->transport;
  std::int32_t result = -1;
  std::string reason;
  const auto send = [&] {
    const Result<HttpResponse> made = transport(ToRequest(request));
    if (!made) {
      const Status code = made.error().code;
      (void)cryptcli_response_set_error(response, made.error().message.c_str());
      if (code == Status::Timeout || code == Status::Cancelled)
        (void)cryptcli_response_set_error_code(response, static_cast<cryptcli_status>(code));
    } else if (Fill(response, *made)) {
      result = 0;
    } else {
      (void)cryptcli_response_set_error(response, "The transport's response is invalid");
    }
  };
  if (Guard(send, reason)) return result;
  std::string ignored;
  (void)Guard([&] { (void)cryptcli_response_set_error(response, Threw("transport", reason).c_str()); },
              ignored);
  return -1;
}

}  // namespace detail
}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_DETAIL_CALLABLES_HPP

#pragma once

#include <string>
#include <string_view>

#include "tests/support/scripted_http.h"
#include "tests/support/text.h"

// What goes over the wire: bodies of commands, and the responses of well-behaved servers.
namespace TestSupport {

inline constexpr const char* kDate = "Sun, 06 Nov 1994 08:49:37 GMT";

/// The body of a command: the standard header and the payload.
inline std::string Envelope(std::string_view payload) {
  return R"({"header":{"type":"standardVelmoraHeader","commandId":"","sessionId":"",)"
         R"("path":["java-api-instance"],"protocolVersion":"2.0"},"payload":)" +
         std::string(payload) + "}";
}

/// A key server's response with the payload.
inline CannedResponse Payload(std::string_view payload) {
  return Json(R"({"header":{"type":"standardVelmoraHeader"},"payload":)" + std::string(payload) + "}");
}

/// A key server's refusal.
inline CannedResponse ErrorCode(int code) {
  return Payload(R"({"type":"status","code":)" + std::to_string(code) + "}");
}

/// A key server's response with a new room key; a part that is empty is left out.
inline CannedResponse KeyResponse(const std::string& certificate, const std::string& wrappedKey) {
  std::string payload = R"({"type":"generateWrappedKeyResponse")";
  if (!certificate.empty()) payload += R"(,"encodedX509Certificate":)" + Quoted(certificate);
  if (!wrappedKey.empty()) payload += R"(,"encodedWrappedKey":)" + Quoted(wrappedKey);
  return Payload(payload + "}");
}

/// The crypt service's response with an authorization token.
inline CannedResponse Token(std::string_view token) {
  return Json(R"({"authztoken":")" + std::string(token) + R"("})");
}

/// A key server's response to a probe.
inline CannedResponse Alive() {
  return DateResponse(kDate);
}

}  // namespace TestSupport

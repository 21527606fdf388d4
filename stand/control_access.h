#pragma once

#include <optional>
#include <string>
#include <vector>

#include "stand/control_input.h"

namespace CryptStand {

/// Who may use the page and the control interface. A web page that somebody visits can make the browser send
/// requests to loopback, so being on this machine proves nothing:
///
/// - The "Host" header must name this machine: a foreign name that resolves to loopback (DNS rebinding) is
///   refused.
/// - An "Origin" must be the request's own host: scripts of other sites are refused.
/// - Changes and secrets need the token, which no other site can know.
class ControlAccess {
 public:
  /// `hosts` are names and addresses besides those of loopback, without a port.
  ControlAccess(std::string token, std::vector<std::string> hosts);

  const std::string& GetToken() const { return token_; }
  /// Why a request must not be served at all; none if it may be.
  std::optional<ControlError> RefuseForeign(const HttpRequest& request) const;
  /// Whether the request has the token.
  bool HasToken(const HttpRequest& request) const;

  /// A new token: 32 random hexadecimal digits; empty if no random bytes are available.
  static std::string MakeToken();

 private:
  const std::string token_;
  std::vector<std::string> hosts_;
};

/// Refuses a request that needs the token and does not have it.
HttpReply TokenMissing();

}  // namespace CryptStand

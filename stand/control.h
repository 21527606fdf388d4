#pragma once

#include <optional>
#include <stop_token>

#include "stand/control_access.h"
#include "stand/environment.h"

namespace CryptStand {

/// The control interface: the resources below /stand/ of the crypt service, by which scripts, tests of other
/// programs and the page change how the servers behave. docs/stand.md describes it, and so does GET /stand/.
/// Faults do not apply to it, and the event log does not contain its requests. Safe for any number of
/// threads; `environment` must outlive it.
class Control {
 public:
  Control(Environment& environment, ControlAccess access)
      : environment_(environment), access_(std::move(access)) {}

  const std::string& GetToken() const { return access_.GetToken(); }
  /// Whether a request is for the environment itself: its path begins with "stand".
  static bool IsFor(const HttpRequest& request);
  HttpReply Serve(const HttpRequest& request, const std::stop_token& stop);
  /// The reply to a request that a page of another site may have sent, for whatever else is not to be read by
  /// such a page; none if it may be served.
  std::optional<HttpReply> RefuseForeign(const HttpRequest& request) const;

 private:
  HttpReply Dispatch(const HttpRequest& request, const std::stop_token& stop);

  Environment& environment_;
  const ControlAccess access_;
};

}  // namespace CryptStand

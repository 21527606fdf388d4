#pragma once

#include <string>

#include "foundation/ansistr.h"

namespace OruKalvix {

/// The parts of a URL that determine where a request goes.
struct UrlParts {
  std::string scheme;  ///< lower case
  std::string host;    ///< lower case; an IPv6 address in its brackets
  std::string port;    ///< the scheme's own when the URL names none
  std::string path;    ///< dot segments resolved, escaped ones as well; at least "/"

  /// "host:port", for messages.
  OruGuiBase::AnsiStr GetAuthority() const;
};

/// Splits a URL. False, with the reason, for anything but an http or https URL without user name.
bool ParseUrl(const OruGuiBase::AnsiStr& url, UrlParts& parts, OruGuiBase::AnsiStr& errorText);

/// Whether a URL is `base` or below it: the same scheme, host and port, and a path that is the base's or
/// continues it after a slash.
bool IsAtOrBelow(const UrlParts& base, const UrlParts& url);

}  // namespace OruKalvix

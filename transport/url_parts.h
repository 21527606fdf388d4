#pragma once

#include <string>

#include "foundation/ansistr.h"

namespace OruKalvix {

/// What of a URL decides where a request goes.
struct UrlParts {
  std::string scheme;  ///< lower case
  std::string host;    ///< lower case; an IPv6 address in its brackets
  std::string port;    ///< the scheme's own when the URL names none
  std::string path;    ///< dot segments resolved, escaped ones as well; at least "/"

  /// "host:port", for messages.
  OruGuiBase::AnsiStr GetAuthority() const;
};

/// Takes a URL apart. False, with the reason, for anything but an http or https URL without user name.
bool ParseUrl(const OruGuiBase::AnsiStr& url, UrlParts& parts, OruGuiBase::AnsiStr& errorText);

/// Whether a URL is `base` or lies below it: the same scheme, host and port, and a path that goes on from
/// the base's at a slash.
bool IsAtOrBelow(const UrlParts& base, const UrlParts& url);

}  // namespace OruKalvix

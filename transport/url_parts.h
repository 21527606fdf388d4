#pragma once

#include <string>

#include "foundation/ansistr.h"
#include "transport/export.h"

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
CRYPTCLI_CURL_EXPORT bool ParseUrl(const OruGuiBase::AnsiStr& url, UrlParts& parts,
                                   OruGuiBase::AnsiStr& errorText);

/// Whether a URL is `base` or below it: the same scheme, host and port, and a path that is the base's or
/// continues it after a slash. Such a request may carry the credentials of the crypt service. Exported for
/// the C interface, which has to decide the same for a transport of the application.
CRYPTCLI_CURL_EXPORT bool IsAtOrBelow(const UrlParts& base, const UrlParts& url);

}  // namespace OruKalvix

#pragma once

#include "stand/http.h"

namespace CryptStand {

/// Whether a request is for the root of the crypt service, where the page is. A query does not matter.
bool IsPageRequest(const HttpRequest& request);

/// The page on which somebody watches and changes the test environment in a browser, by means of the control
/// path. Its headers allow the browser to run nothing but the page's own script and style, to ask nobody but
/// this server, and to store nothing. Other methods than GET and HEAD get status 405.
HttpReply ServePage(const HttpRequest& request);

}  // namespace CryptStand

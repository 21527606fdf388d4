#pragma once

#include "stand/http.h"

namespace CryptStand {

/// Whether a browser asks for the root of the crypt service: the request accepts "text/html" by name. A query
/// does not matter. Other clients get what the crypt service has there, so that faults apply to them.
bool IsPageRequest(const HttpRequest& request);

/// The page on which somebody watches and changes the test environment in a browser, by means of the control
/// interface. Its headers allow the browser to run nothing but the page's own script and style, to ask nobody
/// but this server, and to store nothing.
HttpReply ServePage();

}  // namespace CryptStand

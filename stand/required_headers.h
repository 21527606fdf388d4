#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "stand/http.h"
#include "stand/served.h"

namespace CryptStand {

/// Name and value.
using RequiredHeader = std::pair<std::string, std::string>;

/// Parses 'Name: value'; none when the name is not a token (RFC 9110, 5.6.2) or the value
/// is empty or has control characters, which no request can have.
std::optional<RequiredHeader> ParseRequiredHeader(const std::string& line);

/// The refusal of a request to the crypt service without one of the headers; none when it has all.
std::optional<Served> RefuseWithoutHeaders(const HttpRequest& request,
                                           const std::vector<RequiredHeader>& headers);
/// The refusal of a request to a key server with one of them: credentials for the crypt service must
/// not reach key servers, and a client that sends them everywhere has a mistake that a test should show.
std::optional<Served> RefuseWithHeaders(const HttpRequest& request,
                                        const std::vector<RequiredHeader>& headers);

}  // namespace CryptStand

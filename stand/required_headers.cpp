// Headers that the crypt service requires, as a gateway in front of a real one requires credentials. Refusals
// name the header and never its value, which may be a secret that somebody tries out here.
#include "stand/required_headers.h"

#include <strings.h>

#include "foundation/text_checks.h"

namespace CryptStand {
namespace {

// RFC 9110, 11.6.1: a refusal with status 401 names a scheme. That of "Authorization" is its first word;
// other headers have none, so their name stands for it.
std::string SchemeOf(const RequiredHeader& header) {
  const bool isUsual = strcasecmp(header.first.c_str(), "Authorization") == 0;
  return isUsual ? header.second.substr(0, header.second.find(' ')) : header.first;
}

bool Has(const HttpRequest& request, const RequiredHeader& header) {
  return request.HeaderValues(header.first) == std::vector<std::string>{header.second};
}

}  // namespace

std::optional<RequiredHeader> ParseRequiredHeader(const std::string& line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const std::size_t begin = line.find_first_not_of(" \t", colon + 1);
  const std::string name = line.substr(0, colon);
  if (!OruGuiBase::IsHeaderName(name) || begin == std::string::npos) return std::nullopt;
  std::string value = line.substr(begin, line.find_last_not_of(" \t") - begin + 1);
  return OruGuiBase::IsHeaderValue(value) ? std::optional(RequiredHeader(name, std::move(value)))
                                          : std::nullopt;
}

std::optional<Served> RefuseWithoutHeaders(const HttpRequest& request,
                                           const std::vector<RequiredHeader>& headers) {
  for (const RequiredHeader& header : headers) {
    if (Has(request, header)) continue;
    Served served = RefusedWith(401, kUnauthorisedErrorId,
                                "The header \"" + header.first + "\" is missing or has another value");
    served.reply.headers.emplace_back("WWW-Authenticate", SchemeOf(header));
    return served;
  }
  return std::nullopt;
}

std::optional<Served> RefuseWithHeaders(const HttpRequest& request,
                                        const std::vector<RequiredHeader>& headers) {
  for (const RequiredHeader& header : headers) {
    if (!Has(request, header)) continue;
    return RefusedWith(400, kMalformedErrorId,
                       "The header \"" + header.first + "\" is for the crypt service alone");
  }
  return std::nullopt;
}

}  // namespace CryptStand

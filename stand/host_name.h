#pragma once

#include <string>
#include <vector>

namespace CryptStand {

/// Whether it can be a host's name, or an IP address, without a port. It goes into URLs and certificates.
bool IsHost(const std::string& text);
/// An IPv6 address in brackets (RFC 3986, 3.2.2); other hosts as they are.
std::string HostInUrl(const std::string& host);
/// An IPv6 address without brackets; other hosts as they are.
std::string WithoutBrackets(const std::string& host);
/// A host as it may stand in a "Host" header: clients send what is in the URL, browsers the shortest form of
/// an address (RFC 5952).
std::vector<std::string> HostHeaders(const std::string& host);

}  // namespace CryptStand

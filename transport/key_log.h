#pragma once

#include <curl/curl.h>

namespace OruKalvix {

/// Keeps the secrets of a handle's TLS sessions out of the file that SSLKEYLOGFILE names: libcurl would write
/// them there, for whoever records the traffic. Does nothing where libcurl's TLS library is not the OpenSSL
/// that this one was linked with.
CURLcode ForbidKeyLog(CURL* handle) noexcept;

}  // namespace OruKalvix

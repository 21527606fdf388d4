#pragma once

#include <curl/curl.h>

namespace OruKalvix {

/// Keeps the secrets of a handle's TLS sessions out of the file that SSLKEYLOGFILE names: libcurl would write
/// them there, and whoever records the traffic could decrypt it. Does nothing if libcurl uses another TLS
/// library than the OpenSSL that this library is linked with.
CURLcode ForbidKeyLog(CURL* handle) noexcept;

}  // namespace OruKalvix

#pragma once

#include <curl/curl.h>

namespace OruKalvix {

/// Prepares what libcurl makes for a handle's TLS connections. Keeps their secrets out of the file that
/// SSLKEYLOGFILE names: libcurl would write them there, and whoever records the traffic could decrypt it. And
/// notes the alerts that servers send, for GetClientRefusal(). Does nothing if libcurl uses another TLS
/// library than the OpenSSL that this library is linked with.
CURLcode PrepareTls(CURL* handle) noexcept;

/// Forgets what this thread's handshakes have shown; to be called before an exchange.
void ForgetHandshakes() noexcept;
/// Whether a server has asked for the client's certificate since then.
bool WasCertificateRequested() noexcept;
/// The server's reason if the latest alert that this thread has received refuses the client's certificate, or
/// that there is none (RFC 8446, 6.2); null for any other and for none.
const char* GetClientRefusal() noexcept;

}  // namespace OruKalvix

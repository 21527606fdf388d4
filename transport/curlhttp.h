#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "exchange/icryptclienthttp.h"
#include "foundation/ansistr.h"
#include "foundation/kvmap.h"
#include "transport/export.h"

namespace OruKalvix {

/// Returns the headers that authenticate one request to the crypt service. Called on the thread that sends,
/// once for each such request; several threads may call it at the same time. If it returns false, with the
/// reason in `errorText`, or throws, the exchange fails before anything is sent.
using CredentialCallback =
    std::function<bool(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                       OruGuiBase::KVMap& headers, OruGuiBase::AnsiStr& errorText)>;

/// How a CryptClientCurl reaches the network. Empty members keep their defaults, whatever the environment
/// says: proxy variables have no effect, and no session secrets are written to SSLKEYLOGFILE if libcurl uses
/// the same OpenSSL as this library, as on Debian. OpenSSL still reads its own configuration (OPENSSL_CONF),
/// and the system's resolver its variables.
struct CryptClientCurlOptions {
  /// PEM file of the certification authorities to trust instead of the system's.
  OruGuiBase::AnsiStr caFile{};
  /// PEM file of the client certificate, with its chain if it has one.
  OruGuiBase::AnsiStr clientCertificate{};
  /// PEM file of its private key; empty if the certificate's file contains the key as well.
  OruGuiBase::AnsiStr clientKey{};
  /// Password of that key. There is never a prompt for it.
  OruGuiBase::AnsiStr clientKeyPassword{};
  /// URL of a proxy for every request, "http://host:port" or another type that libcurl knows.
  OruGuiBase::AnsiStr proxy{};
  /// Headers for every request. Sent to key servers too: do not put credentials here. Values must be strings.
  OruGuiBase::KVMap headers{};
  /// Base URL of the crypt service. Requests at or below it carry the credentials, no others do.
  OruGuiBase::AnsiStr serviceUrl{};
  CredentialCallback credentials{};
  /// Largest response body in memory, in bytes, at most 2 GiB. The exchange fails if the body is longer.
  std::uint32_t maxBody = 64 * 1024 * 1024;
  /// Seconds without a byte in either direction after which an exchange fails; 0 for no limit.
  std::uint32_t stallSeconds = 300;
  /// Number of idle handles, each with its open connections, that are kept for later requests.
  std::uint32_t maxIdleHandles = 16;
};

/// A transport on libcurl: HTTP/1.1 over TCP or TLS (1.2 and up, certificate and host name always verified).
///
/// - `http` and `https` alone, methods GET and POST. Redirects are not followed. A user name in a URL is
///   refused, since URLs are traced.
/// - HttpOptions: the first timeout limits connecting, the last the whole exchange; with 0, or without
///   useTimeouts, there is no limit (except 300 seconds for connecting, libcurl's default).
/// - Headers of a request take precedence over credentials, and these over CryptClientCurlOptions::headers.
///   A header that would break the framing of the request fails the exchange.
/// - A body for a file is written as it arrives. The file is opened before anything is sent, created with
/// mode
///   0600 or truncated, and left empty if the exchange fails.
/// - Response headers are those of the final response, names as they were sent; trailers are left out.
///   More than 1000 header lines, or 256 KiB of them, interim responses included, fail the exchange.
/// - Connections are kept and reused, by one thread at a time. When a kept connection breaks before the first
///   byte of a response, a GET is sent once more on a new one; so is a POST that had not been sent
///   completely, since no server can have carried it out. No other request is repeated.
class CRYPTCLI_CURL_EXPORT CryptClientCurl : public ICryptClientHttp {
 public:
  /// Releases the reference of a Ptr.
  struct Releaser {
    void operator()(CryptClientCurl* transport) const { transport->Release(); }
  };
  using Ptr = std::unique_ptr<CryptClientCurl, Releaser>;

  /// Makes a transport and returns its first reference. Null, with the reason in `errorText`, if an option is
  /// wrong: a file that cannot be read, an invalid header or URL.
  static Ptr Create(const CryptClientCurlOptions& options, OruGuiBase::AnsiStr& errorText) noexcept;
  /// The versions of libcurl and of the libraries that it uses at run time, "libcurl/7.88.1 OpenSSL/3.0.17
  /// ...".
  static const char* GetLibraryVersions() noexcept;

 protected:
  CryptClientCurl() = default;
  ~CryptClientCurl() = default;
};

}  // namespace OruKalvix

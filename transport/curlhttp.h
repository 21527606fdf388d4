#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "exchange/icryptclienthttp.h"
#include "foundation/ansistr.h"
#include "foundation/kvmap.h"
#include "transport/export.h"

namespace OruKalvix {

/// Gives the headers that authenticate one request to the crypt service. Called on the thread that sends,
/// once for each such request, and by many threads at once. False, with the reason in `errorText`, ends the
/// exchange before anything is sent; so does an exception.
using CredentialCallback =
    std::function<bool(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                       OruGuiBase::KVMap& headers, OruGuiBase::AnsiStr& errorText)>;

/// How a CryptClientCurl reaches the network. What is left empty keeps its default, whatever the environment
/// says: proxy variables have no effect, and SSLKEYLOGFILE gets no secret of a session where libcurl uses the
/// OpenSSL that this library is linked with, as Debian's does. OpenSSL still reads its own configuration
/// (OPENSSL_CONF), and the system's resolver its variables.
struct CryptClientCurlOptions {
  /// PEM file of the certification authorities to trust in place of the system's.
  OruGuiBase::AnsiStr caFile{};
  /// PEM file of the client certificate, with its chain if it has one.
  OruGuiBase::AnsiStr clientCertificate{};
  /// PEM file of its private key; empty when the certificate's file holds the key as well.
  OruGuiBase::AnsiStr clientKey{};
  /// Password of that key. Nobody is ever asked for one.
  OruGuiBase::AnsiStr clientKeyPassword{};
  /// URL of a proxy for every request, "http://host:port" or another type that libcurl knows.
  OruGuiBase::AnsiStr proxy{};
  /// Headers for every request, to key servers as well: no place for credentials. Name to string.
  OruGuiBase::KVMap headers{};
  /// Base URL of the crypt service; requests at or below it take the credentials, no other does.
  OruGuiBase::AnsiStr serviceUrl{};
  CredentialCallback credentials{};
  /// Bytes of a response that are taken into memory, 2 GiB at most. A longer one fails the exchange.
  std::uint32_t maxBody = 64 * 1024 * 1024;
  /// Seconds in which not one byte moves in either direction before an exchange is given up; 0 waits on.
  std::uint32_t stallSeconds = 300;
  /// Handles, with the connections that they keep open, that wait for their next use.
  std::uint32_t maxIdleHandles = 16;
};

/// The network by libcurl: HTTP/1.1 over TCP or TLS (1.2 and up, certificate and host name always verified).
///
/// - `http` and `https` alone, methods GET and POST. Redirects are not followed. A user name in a URL is
///   refused, since URLs are traced.
/// - HttpOptions: the first timeout bounds connecting, the last the whole exchange; 0, or useTimeouts unset,
///   sets no limit of this exchange's own (connecting then ends after 300 seconds).
/// - Headers of a request take precedence over credentials, and these over CryptClientCurlOptions::headers.
///   A header that would break the framing of the request fails the exchange.
/// - A body for a file is written as it comes. The file is opened before anything is sent, made for the owner
///   alone (0600) or emptied, and left empty when the exchange fails.
/// - Response headers are those of the final response, names as they were sent; trailers are left out.
///   More than 1000 header lines, or 256 KiB of them, interim responses included, fail the exchange.
/// - Connections are kept and used again, by one thread at a time. When a kept connection breaks before the
///   first byte of a response, the request is sent once more on a new one if it is a GET, or if it had not
///   been handed over completely, so that no server can have carried it out. Any other is not repeated.
class CRYPTCLI_CURL_EXPORT CryptClientCurl : public ICryptClientHttp {
 public:
  /// Gives a reference back when its holder ends.
  struct Releaser {
    void operator()(CryptClientCurl* transport) const { transport->Release(); }
  };
  using Ptr = std::unique_ptr<CryptClientCurl, Releaser>;

  /// Makes a transport and hands out its first reference. Null, with the reason in `errorText`, when an
  /// option cannot be right: a file that cannot be read, an invalid header or URL.
  static Ptr Create(const CryptClientCurlOptions& options, OruGuiBase::AnsiStr& errorText) noexcept;

 protected:
  CryptClientCurl() = default;
  ~CryptClientCurl() = default;
};

}  // namespace OruKalvix

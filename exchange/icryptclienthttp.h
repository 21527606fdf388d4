#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace OruKalvix {

/// What the client asks of one exchange. Filled by the client, read by the transport.
struct HttpOptions {
  bool useTimeouts = false;        ///< the three values below hold
  std::uint32_t timeouts[3] = {};  ///< milliseconds; the client gives all three the same value, or 0
  std::uint32_t reserved = 0;      ///< always 0
};

/// The outcome of one exchange. Prepared by the client, filled by the transport.
struct HttpResponse {
  OruGuiBase::KVMap headers;       ///< name to string value, names in whatever case the server sent
  OruGuiBase::AnsiStr body;        ///< when no target file is given
  OruGuiBase::AnsiStr targetFile;  ///< set by the client: when not empty, the path that the body goes to
  std::uint32_t status = 0;        ///< HTTP status; to be set whenever the result is not negative
  OruGuiBase::AnsiStr errorText;   ///< the reason, when the result is negative
};

/// The way to the network, implemented by the application: the client opens no connection of its own.
///
/// One object may serve many clients on many threads, if its implementation allows for that. Redirects,
/// proxies, TLS, retries and the credentials for the crypt service are the implementation's affair. The table
/// of virtual functions is QueryInterface (never called), AddRef, Release, SendRequest.
class ICryptClientHttp : public OruGuiBase::IObject {
 public:
  /// Carries out one exchange and blocks until it has ended. A negative result means that there was none,
  /// with the reason in `response.errorText`; any HTTP status is a result of 0 or more. No exception may
  /// leave it. The URL goes out as it stands: "." and ".." in it are names of rooms.
  virtual std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                                   const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                                   const HttpOptions& options, HttpResponse& response) = 0;

 protected:
  ~ICryptClientHttp() = default;
};

}  // namespace OruKalvix

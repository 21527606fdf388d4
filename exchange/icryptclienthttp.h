#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace OruKalvix {

/// Options of one exchange. Filled by the client, read by the transport.
struct HttpOptions {
  bool useTimeouts = false;        ///< whether the three values below apply
  std::uint32_t timeouts[3] = {};  ///< milliseconds; the client gives all three the same value, or 0
  std::uint32_t reserved = 0;      ///< always 0
};

/// The outcome of one exchange. Prepared by the client, filled by the transport.
struct HttpResponse {
  OruGuiBase::KVMap headers;       ///< name to string value, names in whatever case the server sent
  OruGuiBase::AnsiStr body;        ///< used when there is no target file
  OruGuiBase::AnsiStr targetFile;  ///< set by the client: if not empty, the path to write the body to
  std::uint32_t status = 0;        ///< HTTP status; must be set whenever the result is not negative
  OruGuiBase::AnsiStr errorText;   ///< the reason, when the result is negative
};

/// The HTTP transport, implemented by the application: the client opens no connection of its own.
///
/// One object may serve many clients on many threads, if its implementation allows that. Redirects, proxies,
/// TLS, retries and the credentials for the crypt service are up to the implementation. The table of virtual
/// functions is QueryInterface (never called), AddRef, Release, SendRequest.
class ICryptClientHttp : public OruGuiBase::IObject {
 public:
  /// Carries out one exchange and returns when it is complete. A negative result means that there was no
  /// exchange, with the reason in `response.errorText`; any HTTP status is a result of 0 or more. Must not
  /// throw. Send the URL unchanged: "." and ".." in it are names of rooms, not steps in a path.
  virtual std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                                   const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                                   const HttpOptions& options, HttpResponse& response) = 0;

 protected:
  ~ICryptClientHttp() = default;
};

}  // namespace OruKalvix

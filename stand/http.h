#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/kvmap.h"
#include "stand/tls.h"

namespace CryptStand {

/// One request as a server of the test environment sees it.
struct HttpRequest {
  std::string method;
  /// Path and query as they came, still escaped.
  std::string target;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  /// The subject of the client's TLS certificate as in RFC 2253; empty without one.
  std::string peer{};
  /// Sleeps for some milliseconds; returns false at once when the client leaves or the server goes down.
  std::function<bool(int milliseconds)> pause{};

  /// Values of a header, whatever the case of its name.
  std::vector<std::string> HeaderValues(std::string_view name) const;
  /// The media type without its parameters; empty unless there is exactly one "Content-Type" header.
  std::string ContentType() const;
  /// The segments of the path, unescaped one by one, so that an escaped slash stays inside its segment; the
  /// empty one before the first slash is left out. No value when an escape is malformed.
  std::optional<std::vector<std::string>> PathSegments() const;
  /// The members of the query, unescaped; "+" is a space. No value when an escape is malformed or a name
  /// comes twice.
  std::optional<OruGuiBase::KVMap> QueryMembers() const;
};

/// Returns the next chunk of a body at each call; an empty one ends the body.
using BodySource = std::function<std::string()>;

/// The reply to a request.
struct HttpReply {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
  /// Opens a body that is too large for memory, from its beginning each time. If set, it replaces `body`.
  std::function<BodySource()> openBody;
  std::vector<std::pair<std::string, std::string>> headers;
  /// Number of bytes of the body after which the connection is cut, although more were announced.
  std::optional<std::size_t> cutAfter;
  /// Pause before each byte of the body, in milliseconds.
  int msPerByte = 0;
  /// Ends the connection after the response although its headers do not say so.
  bool isLast = false;
  /// Ends the connection instead of a response.
  bool isDropped = false;
};

/// Handles a request on the connection's thread; several may run at the same time. It returns soon after
/// `stop` was requested. It must not throw.
using HttpHandler = std::function<HttpReply(const HttpRequest& request, const std::stop_token& stop)>;

/// How long a server waits for the other side, in milliseconds.
struct HttpTimeouts {
  int idleMs = 60000;      ///< Silence between two requests.
  int transferMs = 30000;  ///< Silence inside a request or a response.
};

/// An HTTP server that can go down and come back on the same port.
///
/// The port stays bound while the server is down, but nothing listens on it: connections are refused, and no
/// other program gets the port in the meantime. Going down also ends every open connection at once.
class HttpServer {
 public:
  explicit HttpServer(HttpHandler handler, HttpTimeouts timeouts = {});
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// Speaks TLS; to be called before Up().
  void Secure(TlsSource source);
  /// Ends the connections that wait for a request at once, the others after their response, so that clients
  /// connect again.
  void EndConnections();

  /// Binds a port of an IP address, 0 for any. False with the reason in `error`.
  bool Bind(const std::string& address, int port, std::string& error);
  int GetPort() const;

  /// Listens and serves; does nothing if it already does. False with the reason in `error`.
  bool Up(std::string& error);
  /// Closes the listening socket and all connections and waits for their threads. Not to be called from a
  /// handler of this server.
  void Down();
  bool IsUp() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace CryptStand

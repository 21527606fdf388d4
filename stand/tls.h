#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <sys/types.h>

#include "stand/cert_maker.h"

namespace CryptStand {

/// What a server shows in a TLS handshake and what it asks of clients. Immutable; copies share it.
class TlsContext {
 public:
  TlsContext() = default;

  /// `clientAuthorities` are certificates in PEM: if there are any, every client needs a certificate that one
  /// of them issued. Empty with the reason in `error` when an argument cannot be used.
  static TlsContext Make(const Identity& server, const std::string& clientAuthorities, std::string& error);

  bool IsEmpty() const { return context_ == nullptr; }
  SSL_CTX* Get0() const { return context_.get(); }

 private:
  explicit TlsContext(SSL_CTX* context) : context_(context, SSL_CTX_free) {}

  std::shared_ptr<SSL_CTX> context_;
};

/// How a server secures its connections. Both functions are called on the connections' threads.
struct TlsSource {
  /// Asked for each connection; an empty context ends the connection.
  std::function<TlsContext()> getContext;
  /// Gets the reason of each handshake that fails.
  std::function<void(const std::string& reason)> onFailure;
};

/// The server's side of TLS on one connection: 1.2 or 1.3, without resumption. Used by one thread; does not
/// own the socket. Results of Read and Write are those of ConnectionStream.
class TlsSession {
 public:
  TlsSession(const TlsContext& context, int socket);
  ~TlsSession() = default;
  TlsSession(const TlsSession&) = delete;
  TlsSession& operator=(const TlsSession&) = delete;

  /// Shakes hands within the time. False with the reason in `error`.
  bool Accept(int timeoutMs, std::string& error);
  ssize_t Read(void* data, std::size_t size, int timeoutMs);
  ssize_t Write(const void* data, std::size_t size, int timeoutMs);
  /// Whether bytes have been received that Read() has not returned yet; they need not be whole.
  bool HasPending() const;
  /// Announces the end (RFC 8446, 6.1). Without it a client may take the end of the connection for an attack.
  void End();
  /// The subject of the client's certificate as in RFC 2253; empty without one.
  std::string GetPeerSubject() const;

 private:
  /// What the BIO's functions, which are static, get of their session. Lives as long as that.
  struct Transport {
    int socket = -1;
    int error = 0;  // `errno` of the last failure; 0 at the end of the connection
  };

  static const BIO_METHOD* Method();
  static int ReadSocket(BIO* bio, char* data, int size);
  static int WriteSocket(BIO* bio, const char* data, int size);
  static long Control(BIO* bio, int command, long number, void* pointer);
  template <class Step>
  ssize_t Run(int timeoutMs, const Step& step);

  Transport transport_;
  std::unique_ptr<SSL, decltype(&SSL_free)> session_;
};

}  // namespace CryptStand

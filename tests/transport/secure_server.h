#pragma once

#include <filesystem>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <thread>

namespace TestSupport {

/// An HTTPS server on a loopback port. It responds to each request with "secure" and closes the connection.
class SecureServer {
 public:
  /// The files are PEM. If an authority is given, clients need a certificate that it issued.
  SecureServer(const std::filesystem::path& certificate, const std::filesystem::path& key,
               const std::filesystem::path& clientAuthority = {});
  SecureServer(const SecureServer&) = delete;
  SecureServer& operator=(const SecureServer&) = delete;
  ~SecureServer();

  std::string Authority(const char* host = "127.0.0.1") const { return host + (":" + std::to_string(port_)); }
  std::string Url(const char* host = "127.0.0.1") const { return "https://" + Authority(host) + "/"; }
  /// Sets the highest version of TLS; call before the first connection.
  void AllowAtMost(int version) { SSL_CTX_set_max_proto_version(context_.get(), version); }
  /// Resets the connections of clients that it refuses, so that its alert may be lost; call it before the
  /// first connection. Otherwise it waits until the client has closed the connection.
  void ResetRefused() { resetsRefused_ = true; }

 private:
  void AcceptAll();
  void Serve(int socket);
  void Refuse(int socket) const;

  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  bool resetsRefused_ = false;
  int port_ = 0;
  int listener_ = -1;
  std::thread thread_;
};

}  // namespace TestSupport

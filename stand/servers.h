#pragma once

#include <string>

#include "stand/proxy.h"
#include "stand/tls_identities.h"

namespace CryptStand {

/// Where a client finds what it needs for TLS: absolute paths, each empty if there is no such file.
struct ClientFiles {
  std::string authority;    ///< The servers' authority.
  std::string certificate;  ///< Of the client that was made.
  std::string key;
};

/// The listening servers of a test environment, by the index of the key server or kCryptService. Safe for any
/// number of threads.
class Servers {
 public:
  virtual ~Servers() = default;

  virtual int CountKeyServers() const = 0;
  /// Base URL; that of the crypt service ends in a slash.
  virtual std::string GetUrl(int server) const = 0;
  virtual bool IsUp(int server) const = 0;
  /// Does nothing if it is up. False with the reason in `error`.
  virtual bool Up(int server, std::string& error) = 0;
  /// Waits for the server's requests: not to be called for a server by one of its own requests.
  virtual void Down(int server) = 0;

  virtual bool HasTls() const = 0;
  /// Whether clients have to show a certificate.
  virtual bool AsksForCertificates() const = 0;
  virtual ClientFiles GetClientFiles() const = 0;
  /// Shows another certificate from the next connection on, and ends the connections that there are. False if
  /// the servers do not speak TLS.
  virtual bool Show(int server, ServerCertificate type) = 0;

  /// Null without one.
  virtual ForwardProxy* GetProxy() const = 0;

  bool Has(int server) const {
    return server == kProxy ? GetProxy() != nullptr : server >= kCryptService && server < CountKeyServers();
  }
};

}  // namespace CryptStand

#pragma once

#include <string>
#include <vector>

#include "stand/event_log.h"
#include "stand/http.h"
#include "stand/tls_identities.h"

namespace CryptStand {

/// What stands for a new authority of clients instead of a file of authorities.
inline constexpr const char* kMakeClientCa = "make";
/// The file of the servers' authority in the folder.
inline constexpr const char* kAuthorityFile = "/server-ca.pem";

/// TLS as the servers of one environment speak it: their certificates, whether they ask clients for one, and
/// the files that clients need. `store` and `log` must outlive it. Safe for any number of threads after
/// Prepare().
class ServerTls {
 public:
  ServerTls(Store& store, EventLog& log) : identities_(store), log_(log) {}

  /// Makes certificates for these hosts and loopback. `clientCa` is a PEM file with the authorities of
  /// clients, "make" to make one with a client, or empty to ask for none. False with the reason in `error`.
  bool Prepare(std::vector<std::string> hosts, const std::string& clientCa, std::string& error);
  /// Writes the authority's certificate, and the client with its key if one was made. False with the reason
  /// in `error`.
  bool WriteFiles(const std::string& folder, std::string& error);
  /// Lets a server speak TLS. Before it is up.
  void Secure(HttpServer& http, int server);
  /// For the next connections. False if the server shows this certificate already.
  bool Show(int server, ServerCertificate type) { return identities_.Show(server, type); }

  /// The certificate of the servers' authority in PEM.
  std::string GetServerAuthority() { return identities_.GetServerAuthority(); }
  /// The client that was made; empty without one.
  Identity GetClient() { return identities_.GetClient(); }

 private:
  TlsIdentities identities_;
  EventLog& log_;
};

}  // namespace CryptStand

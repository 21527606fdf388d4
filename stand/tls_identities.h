#pragma once

#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "stand/store.h"
#include "stand/tls.h"

namespace CryptStand {

/// What a server shows in a TLS handshake. Clients must refuse all but the good one.
enum class ServerCertificate {
  Good,
  Expired,     ///< Of the right authority, but its time is over.
  WrongHost,   ///< Of the right authority, for another host.
  SelfSigned,  ///< Without an authority.
};

/// The certificate of a name: "expired", "wrong-host" or "self-signed".
std::optional<ServerCertificate> FindServerCertificate(std::string_view name);

/// Certificates for connections: those of the servers from an authority of their own, and one for a client
/// from another. Neither authority has to do with the lists that files are verified with. Authorities and the
/// client are kept in the store, which must outlive this; servers get new certificates at each start. Safe
/// for any number of threads.
class TlsIdentities {
 public:
  using Clock = std::function<std::time_t()>;

  explicit TlsIdentities(
      Store& store, Clock clock = [] { return std::time(nullptr); })
      : store_(store), clock_(std::move(clock)) {}

  /// Makes the servers' authority, or a new one when little of its time is left. The certificates will be for
  /// `hosts` as well as for loopback. False with the reason in `error`.
  bool Prepare(std::vector<std::string> hosts, std::string& error);
  /// Makes an authority for clients and a client, and asks for certificates of that authority from now on.
  bool PrepareClient(std::string& error);
  /// Asks for certificates of these authorities instead, in PEM.
  void SetClientAuthorities(std::string authorities);

  /// The certificate of the servers' authority in PEM.
  std::string GetServerAuthority();
  /// The client that PrepareClient() has made; empty without one.
  Identity GetClient();

  /// For the next connection to a server, with a certificate that stays valid for weeks.
  TlsContext GetContext(int server);
  /// False if the server shows it already.
  bool Show(int server, ServerCertificate type);

 private:
  Identity GetAuthority(const std::string& name);
  bool IsOver(const Cert& certificate, std::time_t margin) const;
  Identity MakeServer(ServerCertificate type);
  TlsContext MakeContext(ServerCertificate type);

  /// A server's side of TLS, and the certificate in it, whose end is looked at for each connection.
  struct Shown {
    TlsContext context;
    Cert certificate;
  };

  Store& store_;
  const Clock clock_;
  std::mutex mutex_;
  // All guarded by mutex_.
  Identity authority_;
  Identity client_;
  std::vector<std::string> hosts_;
  std::string clientAuthorities_;
  std::map<ServerCertificate, Shown> contexts_;
  std::map<int, ServerCertificate> shown_;
};

}  // namespace CryptStand

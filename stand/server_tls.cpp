// Certificates for the connections of an environment's servers, and the files by which clients trust them.
#include "stand/server_tls.h"

#include <chrono>
#include <utility>

#include "stand/text_file.h"

namespace CryptStand {

bool ServerTls::Prepare(std::vector<std::string> hosts, const std::string& clientCa, std::string& error) {
  if (!identities_.Prepare(std::move(hosts), error)) return false;
  if (clientCa == kMakeClientCa && !identities_.PrepareClient(error)) return false;
  if (!clientCa.empty() && clientCa != kMakeClientCa) {
    const auto authorities = ReadTextFile(clientCa, error);
    if (!authorities.has_value()) return false;
    identities_.SetClientAuthorities(*authorities);
  }
  // Made once here, so that a file without certificates is found at the start and not by each client.
  if (!identities_.GetContext(kCryptService).IsEmpty()) return true;
  error = clientCa + ": no certificates in PEM";
  return false;
}

// Certificates are public; the key is the client's alone.
bool ServerTls::WriteFiles(const std::string& folder, std::string& error) {
  if (!WriteTextFile(folder + kAuthorityFile, GetServerAuthority(), 0644, error)) return false;
  const Identity client = GetClient();
  return client.certificate.IsEmpty() ||
         (WriteTextFile(folder + "/client.pem", client.certificate.ToPEM(), 0644, error) &&
          WriteTextFile(folder + "/client.key", client.key.ToPEM(), 0600, error));
}

// A handshake that fails is no request, but whoever looks for a missing one finds the reason in the log.
void ServerTls::Secure(HttpServer& http, int server) {
  http.Secure({[this, server] { return identities_.GetContext(server); },
               [this, server](const std::string& reason) {
                 Event event;
                 event.server = server;
                 event.time = std::chrono::system_clock::now();
                 event.operation = "handshake";
                 event.outcome = "TLS: " + reason;
                 log_.Add(event);
               }});
}

}  // namespace CryptStand

// The one algorithm by which key-server commands are sent. All commands but the audit log run through it.
#include "client/cryptcli.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"

namespace OruKalvix {

// The sweep: tries each key server once, from where this client's rotation begins, until a visit is done or
// gives up. A server that cannot be reached, or whose visit asks for the next one, is skipped. When the list
// is exhausted there is no message for that: the message of the last server is the more useful one.
bool CryptClient::SweepKeyServers(FunctionRef<Step()> visit) noexcept {
  keyServerCursor.attempts = 0;
  if (keyServerCursor.servers.IsEmpty()) return Fail("Invalid key server URL");
  while (NextKeyServer(keyServerCursor)) {
    if (!KeyServerConnect()) continue;
    switch (visit()) {
      case Step::Done:
        return true;
      case Step::GiveUp:
        return false;
      case Step::NextServer:
        break;
    }
  }
  return false;
}

// Runs one command: probe, token, post, check, next server. Each server gets the same envelope, with a token
// fetched for that server alone. When the crypt service gives no token, the command ends: it would refuse one
// for every other key server too. A response that `read` cannot use is a failure of that server.
bool CryptClient::RunCommand(const KeyServerRequest& request,
                             FunctionRef<bool(const KVMap& payload)> read) noexcept {
  const KVMap envelope = GetEnvelope(request.payload);
  return SweepKeyServers([&]() noexcept {
    if (!FetchAuthzToken(request.command, request.tokenId, request.tokenKey)) return Step::GiveUp;
    KVMap payload;
    if (!KeyServerPost(envelope, request.command, payload)) return Step::NextServer;
    return read(payload) ? Step::Done : Step::NextServer;
  });
}

}  // namespace OruKalvix

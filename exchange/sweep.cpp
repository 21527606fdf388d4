#include "client/cryptcli.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"

namespace OruKalvix {

// Once around the key servers, from where this client's rotation begins. A server that cannot be reached, or
// whose visit asks for the next one, is passed over; an exhausted list has no message of its own, so the last
// one stands.
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

// One command: the same envelope for each server, a token of its own for each attempt. A token that cannot be
// had ends the command, since no other key server would change the crypt service's mind.
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

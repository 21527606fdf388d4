#pragma once

#include "exchange/key_server_command.h"
#include "tests/support/client_fixture.h"
#include "tests/support/test_peer.h"

namespace TestSupport {

/// The same with access to the private members, for what no public member shows or reaches.
class ClientInternalsTest : public ClientTest {
 protected:
  /// Uses one key server, which has responded to a probe already.
  void UseKnownServer() {
    UseServers({"https://one.example"});
    OruGuiBase::PackedDateTime time;
    ASSERT_TRUE(time.Pack(1994, 11, 6, 8, 49, 37, 0, 0));
    peer.serverTimes.Set("https://one.example", OruGuiBase::Val(time));
    ASSERT_TRUE(OruKalvix::CryptClientTestPeer::NextKeyServer(peer.keyServerCursor));
  }

  OruKalvix::CryptClientTestPeer peer{client};
};

}  // namespace TestSupport

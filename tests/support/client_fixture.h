#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <string_view>

#include "client/cryptcli.h"
#include "exchange/key_server_command.h"
#include "tests/support/scripted_http.h"
#include "tests/support/test_peer.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace TestSupport {

/// One client on a scripted transport, with its private side at hand.
class ClientTest : public ::testing::Test {
 protected:
  static constexpr const char* kService = "https://crypt.example/api";
  static constexpr const char* kRoom = "room 1";

  /// Gives the client these key servers; its sweeps begin at the first.
  void UseServers(std::initializer_list<std::string_view> urls) {
    *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
    client.SetKeyServer(Strings(urls));
  }
  /// One key server that has answered a probe already and is in use.
  void UseKnownServer() {
    UseServers({"https://one.example"});
    OruGuiBase::PackedDateTime time;
    ASSERT_TRUE(time.Pack(1994, 11, 6, 8, 49, 37, 0, 0));
    peer.serverTimes.Set("https://one.example", OruGuiBase::Val(time));
    ASSERT_TRUE(OruKalvix::CryptClientTestPeer::NextKeyServer(peer.keyServerCursor));
  }
  std::string Error() const { return Str(client.GetErrorMessage()); }

  ScriptedHttp http;
  OruKalvix::CryptClient client{&http, kService, "auxiliary", kRoom};
  OruKalvix::CryptClientTestPeer peer{client};
};

}  // namespace TestSupport

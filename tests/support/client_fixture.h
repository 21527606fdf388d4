#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <string_view>

#include "client/cryptcli.h"
#include "tests/support/rotation.h"
#include "tests/support/scripted_http.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace TestSupport {

/// One client on a scripted transport, used through its public members.
class ClientTest : public ::testing::Test {
 protected:
  static constexpr const char* kService = "https://crypt.example/api";
  static constexpr const char* kRoom = "room 1";

  /// Gives the client these key servers; its sweeps begin at the first.
  void UseServers(std::initializer_list<std::string_view> urls) {
    BeginRotationAt(0);
    client.SetKeyServer(Strings(urls));
  }
  std::string Error() const { return Str(client.GetErrorMessage()); }

  ScriptedHttp http;
  OruKalvix::CryptClient client{&http, kService, "auxiliary", kRoom};
};

}  // namespace TestSupport

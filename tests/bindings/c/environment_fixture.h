#pragma once

#include "stand/stand.h"
#include "tests/bindings/c/c_fixture.h"

namespace CInterface {

/// A client of a local test environment in this process.
class EnvironmentTest : public ClientTest {
 protected:
  void SetUp() override {
    std::string reason;
    ASSERT_TRUE(stand.Start(reason)) << reason;
    ASSERT_EQ(cryptcli_options_set_service(options.get(), stand.GetServiceUrl().c_str(), nullptr),
              CRYPTCLI_OK);
    MakeClient();
  }
  /// Makes "plain" with the bytes and protects it as "secret".
  void Protect(const std::string& bytes, const char* room = kRoom) {
    scratch.Make("plain", bytes);
    const Outcome outcome = Encrypt("plain", "secret", room);
    ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  }
  void SetFaults(const CryptStand::Fault& fault) {
    for (int server = 0; server < 3; ++server) ASSERT_TRUE(stand.SetFault(server, fault));
  }

  CryptStand::Stand stand;
};

}  // namespace CInterface

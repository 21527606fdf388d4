#include "fuzz/support/hostile_http.h"

#include <gtest/gtest.h>

#include "client/cryptcli.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "tests/support/files.h"
#include "tests/support/test_peer.h"

namespace Fuzz {
namespace {

using OruKalvix::CryptClient;

/// A client whose servers respond as an input says.
class HostileHttpTest : public ::testing::Test {
 protected:
  bool Decrypt(const std::string& responses) {
    Input input(reinterpret_cast<const std::uint8_t*>(responses.data()), responses.size());
    HostileHttp http(input);
    *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
    CryptClient client(&http, Ansi(kServiceUrl), "", Ansi(kRoom));
    const World& world = World::Get();
    const auto source = scratch.Make("source", world.Find(world.envelopes, "genuine"));
    const bool done = client.Decrypt(source, scratch.File("target"), isSigned, isVerified);
    error = Str(client.GetErrorMessage());
    gavePlainKey = http.GavePlainKey();
    wasSilent = http.WasSilent();
    return done;
  }

  TestSupport::ScratchDirectory scratch;
  bool isSigned = false;
  bool isVerified = false;
  bool gavePlainKey = false;
  bool wasSilent = false;
  std::string error;
};

TEST_F(HostileHttpTest, WithoutInputAFileOpensVerified) {
  EXPECT_TRUE(Decrypt("")) << error;
  EXPECT_TRUE(isVerified) << error;
  EXPECT_EQ(scratch.Read("target"), kGenuineContent);
  EXPECT_FALSE(gavePlainKey);
}

TEST_F(HostileHttpTest, WithoutInputAFileIsProtected) {
  Input input(nullptr, 0);
  HostileHttp http(input);
  CryptClient client(&http, Ansi(kServiceUrl), "", Ansi(kRoom));
  bool keyErrorFlag = true;
  EXPECT_TRUE(client.Encrypt(scratch.Make("source", "bytes"), scratch.File("target"), keyErrorFlag))
      << Str(client.GetErrorMessage());
  EXPECT_TRUE(scratch.Exists("target"));
}

TEST_F(HostileHttpTest, ReportsAnUnencryptedKey) {
  EXPECT_TRUE(Decrypt(InputWriter().Byte(6).Below(0, CountVariants("key")).Get())) << error;
  EXPECT_TRUE(isVerified);
  EXPECT_TRUE(gavePlainKey);
}

TEST_F(HostileHttpTest, RefusesAnExchangeWithOrWithoutAReason) {
  EXPECT_FALSE(Decrypt(InputWriter().Byte(12).Get()));
  EXPECT_EQ(error, "Could not get room key: No connection");
  EXPECT_FALSE(wasSilent);
  EXPECT_FALSE(Decrypt(InputWriter().Byte(12).Byte(1).Text("").Get()));
  EXPECT_TRUE(wasSilent);
}

TEST_F(HostileHttpTest, RespondsWithFuzzData) {
  EXPECT_FALSE(Decrypt(InputWriter().Byte(10).Text("[1").Get()));
  EXPECT_TRUE(error.starts_with("Could not get room key: Could not parse response: ")) << error;
}

TEST_F(HostileHttpTest, RespondsWithAStatus) {
  EXPECT_FALSE(Decrypt(InputWriter().Byte(11).Below(404, 1000).Get()));
  EXPECT_EQ(error, "Could not get room key: HTTP 404");
}

}  // namespace
}  // namespace Fuzz

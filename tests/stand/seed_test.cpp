#include <set>

#include "stand/authority.h"
#include "tests/stand/folder.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

// An environment in memory with the same keys as any other of the process.
class Seeded : public StandTest {
 public:
  explicit Seeded(std::uint64_t seed) : StandTest(OptionsFor(seed)) { StandTest::SetUp(); }

  using StandTest::MakeRoomKey;
  std::string Token() { return FetchToken("getKeyRequest"); }
  std::string SerialOfRoomKey(const char* room) {
    EXPECT_TRUE(stand_.AddRoom(room));
    return Cert::FromPEM(MakeRoomKey(room).Text("certificate")).GetSerial();
  }
  std::string SerialOfIntegrityKey() {
    const Reply reply = RunCommand(GetKeyPayload());
    const KVMap key = ReadMap(reply.Payload(), "key").value_or(KVMap());
    return CertFromText(ReadText(key, "encodedCertificate").value_or("")).GetSerial();
  }
  std::string SerialOfMember() {
    const Reply list = Post(Service("crypt/certlist/demo"), Object("keyserver", ""));
    const auto texts = ReadTexts(list.Object(), "certificates").value_or(std::vector<std::string>());
    return texts.empty() ? "" : CertFromText(texts.front()).GetSerial();
  }
  std::string SerialOfRoot() { return Cert::FromPEM(Get(Server("certstore")).body).GetSerial(); }
  std::string SerialOfIssuing() { return Cert::FromPEM(Get(Server("truststore")).body).GetSerial(); }

 private:
  static Options OptionsFor(std::uint64_t seed) {
    Options options;
    options.seed = seed;
    return options;
  }
  void TestBody() override {}
};

// The order among different purposes does not matter.
TEST(SeedTest, GivesTheSameRequestsTheSameSerialNumbers) {
  Seeded first(7);
  Seeded second(7);
  const std::string root = first.SerialOfRoot();
  const std::string integrity = first.SerialOfIntegrityKey();
  const std::string key = first.SerialOfRoomKey("a");
  EXPECT_EQ(second.SerialOfRoomKey("a"), key);
  EXPECT_EQ(second.SerialOfIntegrityKey(), integrity);
  EXPECT_EQ(second.SerialOfRoot(), root);
  EXPECT_EQ(second.SerialOfIssuing(), first.SerialOfIssuing());
  EXPECT_EQ(second.SerialOfMember(), first.SerialOfMember());
  EXPECT_EQ(
      std::set<std::string>({root, integrity, key, first.SerialOfIssuing(), first.SerialOfMember()}).size(),
      5U);
  EXPECT_EQ(root.size(), 32U);
}

TEST(SeedTest, KeepsSerialNumbersApartWithoutIt) {
  Stand first;
  Stand second;
  std::string error;
  ASSERT_TRUE(first.Start(error) && second.Start(error)) << error;
  EXPECT_NE(Cert::FromPEM(Get(first.GetKeyServerUrls()[0] + "/certstore").body).GetSerial(),
            Cert::FromPEM(Get(second.GetKeyServerUrls()[0] + "/certstore").body).GetSerial());
}

TEST(SeedTest, GivesAnotherSeedOtherSerialNumbers) {
  EXPECT_NE(Seeded(7).SerialOfRoot(), Seeded(8).SerialOfRoot());
}

TEST(SeedTest, LeavesKeysAndTokensRandom) {
  Seeded first(7);
  Seeded second(7);
  EXPECT_NE(first.Token(), second.Token());
  const auto keyOf = [](Seeded& seeded) { return seeded.MakeRoomKey("demo").Text("certificate"); };
  EXPECT_NE(Cert::FromPEM(keyOf(first)).GetPublicKey().ToPublicPEM(),
            Cert::FromPEM(keyOf(second)).GetPublicKey().ToPublicPEM());
}

TEST(SeedTest, UsesNoSerialNumberAgainAfterARestart) {
  const Folder folder;
  std::string error;
  std::set<std::string> serials;
  for (int life = 0; life < 2; ++life) {
    Store store;
    ASSERT_TRUE(store.Open(folder.Path("state"), error)) << error;
    Authority authority(store, /*shareKeys=*/true, /*seed=*/7);
    for (int i = 0; i < 2; ++i) serials.insert(authority.MakeSerial("purpose"));
  }
  EXPECT_EQ(serials.size(), 4U);
}

}  // namespace
}  // namespace CryptStand

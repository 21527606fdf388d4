#include <gtest/gtest.h>

#include "tests/stand/control_peer.h"

namespace CryptStand {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class ControlFaultsTest : public ControlTest {
 protected:
  Reply Set(const std::string& body) const { return Change("POST", "faults", body); }
  int StatusOf(std::size_t server = 0) const { return Get(Server("status?1", server)).status; }
  std::vector<int> Statuses(int count) const {
    std::vector<int> statuses;
    for (int i = 0; i < count; ++i) statuses.push_back(StatusOf());
    return statuses;
  }
};

TEST_F(ControlFaultsTest, SetsAndClearsOne) {
  const Reply first = Set(R"({"server":0,"fault":"status","number":500,"operation":"status"})");
  ASSERT_EQ(first.status, 200) << first.body;
  const std::string id = std::to_string(ReadInteger(first.Object(), "id").value_or(0));
  EXPECT_EQ(StatusOf(), 500);
  EXPECT_EQ(Get(Server("certstore")).status, 200);
  EXPECT_EQ(Change("DELETE", "faults/" + id).status, 200);
  EXPECT_EQ(StatusOf(), 200);
  EXPECT_EQ(Change("DELETE", "faults/" + id).status, 404);
  EXPECT_EQ(Change("DELETE", "faults/x").status, 404);
}

TEST_F(ControlFaultsTest, ListsWhatIsSetWithItsUses) {
  Set(R"({"server":"1","fault":"wrong-date","text":"yesterday","uses":3,"probability":1})");
  StatusOf(1);
  const auto set = ReadList("faults", "set");
  ASSERT_EQ(set.size(), 1U);
  EXPECT_EQ(ReadText(set[0], "server"), "1");
  EXPECT_EQ(ReadText(set[0], "fault"), "wrong-date");
  EXPECT_EQ(ReadText(set[0], "text"), "yesterday");
  EXPECT_EQ(ReadInteger(set[0], "uses"), 3);
  EXPECT_EQ(ReadInteger(set[0], "taken"), 1);
  EXPECT_EQ(ReadInteger(set[0], "usesLeft"), 2);
}

TEST_F(ControlFaultsTest, ListsAllTypes) {
  const auto types = ReadList("faults", "types");
  EXPECT_EQ(types.size(), GetFaultTypes().size());
  EXPECT_EQ(ReadText(types.at(1), "name"), "slow");
  EXPECT_EQ(ReadText(types.at(1), "number"), "milliseconds; 0 for 1000");
  EXPECT_TRUE(types.at(1).Get("text").IsNil());
}

TEST_F(ControlFaultsTest, AppliesToSoManyRequests) {
  Set(R"({"server":"0","fault":"status","uses":1})");
  EXPECT_THAT(Statuses(2), ElementsAre(503, 200));
  Set(R"({"server":"0","fault":"status","uses":2})");
  EXPECT_THAT(Statuses(3), ElementsAre(503, 503, 200));
}

TEST_F(ControlFaultsTest, AppliesWithAProbabilityThatASeedRepeats) {
  const std::string fault = R"({"server":"0","fault":"status","probability":0.5})";
  EXPECT_EQ(Change("POST", "seed", R"({"seed":42})").status, 200);
  ASSERT_EQ(Set(fault).status, 200);
  const auto first = Statuses(40);
  EXPECT_THAT(first, Contains(503));
  EXPECT_THAT(first, Contains(200));
  EXPECT_EQ(Change("POST", "seed", R"({"seed":42})").status, 200);
  EXPECT_EQ(Statuses(40), first);
  EXPECT_EQ(ReadInteger(Read("state"), "seed"), 42);
}

TEST_F(ControlFaultsTest, NeverAppliesWithTheProbabilityZero) {
  Set(R"({"server":"0","fault":"status","probability":0})");
  EXPECT_EQ(StatusOf(), 200);
}

TEST_F(ControlFaultsTest, ConcernsAllKeyServersAtOnce) {
  const Reply set = Set(R"({"server":"all","fault":"status"})");
  EXPECT_EQ(ReadArray(set.Object(), "ids")->GetCount(), 3U);
  for (std::size_t server = 0; server < 3; ++server) EXPECT_EQ(StatusOf(server), 503);
  EXPECT_EQ(Get(Service("crypt/key/demo")).status, 200);
  EXPECT_EQ(Change("DELETE", "faults?server=1").status, 200);
  EXPECT_EQ(StatusOf(1), 200);
  EXPECT_EQ(StatusOf(2), 503);
}

TEST_F(ControlFaultsTest, TakesServersDownAndUp) {
  const std::string url = stand_.GetKeyServerUrls().at(1);
  const Reply down = Set(R"({"server":")" + url + R"(","fault":"down"})");
  ASSERT_EQ(down.status, 200) << down.body;
  EXPECT_EQ(StatusOf(1), 0);
  const std::string id = std::to_string(*ReadInteger(down.Object(), "id"));
  EXPECT_EQ(Change("DELETE", "faults/" + id).status, 200);
  EXPECT_EQ(StatusOf(1), 200);
  Set(R"({"server":"all","fault":"down"})");
  EXPECT_EQ(Change("DELETE", "faults").status, 200);
  for (std::size_t server = 0; server < 3; ++server) EXPECT_EQ(StatusOf(server), 200);
}

TEST_F(ControlFaultsTest, DoesNotTakeTheCryptServiceDown) {
  const Reply reply = Set(R"({"server":"crypt","fault":"down"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "server");
}

TEST_F(ControlFaultsTest, NamesTheWrongMember) {
  const struct {
    const char* body;
    const char* member;
  } rows[] = {
      {R"({"server":"0"})", "fault"},
      {R"({"fault":"cut"})", "server"},
      {R"({"server":9,"fault":"cut"})", "server"},
      {R"({"server":-1,"fault":"cut"})", "server"},
      {R"({"server":true,"fault":"cut"})", "server"},
      {R"({"server":0,"fault":"other"})", "fault"},
      {R"({"server":0,"fault":"none"})", "fault"},
      {R"({"server":0,"fault":7})", "fault"},
      {R"({"server":0,"fault":"cut","uses":"x"})", "uses"},
      {R"({"server":0,"fault":"cut","uses":-1})", "uses"},
      {R"({"server":0,"fault":"cut","number":5000000000})", "number"},
      {R"({"server":0,"fault":"status","number":99})", "number"},
      {R"({"server":0,"fault":"cut","operation":1})", "operation"},
      {R"({"server":0,"fault":"cut","text":null})", "text"},
      {R"({"server":0,"fault":"cut","probability":1.5})", "probability"},
      {R"({"server":0,"fault":"down","uses":1})", "uses"},
  };
  for (const auto& row : rows) {
    const Reply reply = Set(row.body);
    EXPECT_EQ(reply.status, 400) << row.body;
    EXPECT_EQ(ErrorPart(reply, "code"), "invalid_argument") << row.body;
    EXPECT_EQ(ErrorPart(reply, "member"), row.member) << row.body;
  }
  EXPECT_TRUE(ReadList("faults", "set").empty());
}

TEST_F(ControlFaultsTest, RefusesOperationsThatTheServerDoesNotHave) {
  const Reply reply = Set(R"({"server":"all","fault":"slow","operation":"signReqest"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "operation");
  EXPECT_THAT(Allowed(reply), Contains("signRequest"));
  EXPECT_THAT(Allowed(reply), Contains("truststore"));
  const Reply crypt = Set(R"({"server":"crypt","fault":"slow","operation":"signRequest"})");
  EXPECT_EQ(crypt.status, 400);
  EXPECT_THAT(Allowed(crypt), ElementsAre("key", "certlist", "newkey", "authztoken", "integrity"));
  EXPECT_EQ(Set(R"({"server":"crypt","fault":"slow","operation":"newkey"})").status, 200);
  EXPECT_EQ(Set(R"({"server":0,"fault":"slow","operation":"certstore"})").status, 200);
  EXPECT_EQ(Set(R"({"server":0,"fault":"slow","operation":""})").status, 200);
}

TEST_F(ControlFaultsTest, RefusesParametersThatTheTypeDoesNotUse) {
  const Reply number = Set(R"({"server":0,"fault":"drop","number":5})");
  EXPECT_EQ(number.status, 400);
  EXPECT_EQ(ErrorPart(number, "member"), "number");
  EXPECT_EQ(ErrorPart(Set(R"({"server":0,"fault":"slow","text":"5"})"), "member"), "text");
  EXPECT_EQ(Set(R"({"server":0,"fault":"drop","number":0,"text":""})").status, 200);
}

// Those that change members which only responses of key servers have.
TEST_F(ControlFaultsTest, RefusesFaultsWithoutEffectOnTheCryptService) {
  for (const char* fault : {"wrong-type", "bad-signature", "bad-base64"}) {
    const Reply reply = Set(R"({"server":"crypt","fault":")" + std::string(fault) + "\"}");
    EXPECT_EQ(reply.status, 400) << fault;
    EXPECT_EQ(ErrorPart(reply, "member"), "fault") << fault;
    EXPECT_THAT(Allowed(reply), Not(Contains(fault)));
    EXPECT_EQ(Set(R"({"server":"all","fault":")" + std::string(fault) + "\"}").status, 200) << fault;
  }
}

TEST_F(ControlFaultsTest, AcceptsEachFaultThatItAllowsForTheCryptService) {
  const auto allowed = Allowed(Set(R"({"server":"crypt","fault":"bad-signature"})"));
  EXPECT_THAT(allowed, AllOf(Contains("slow"), Contains("empty-members"), Contains("drop")));
  for (const std::string& fault : allowed) {
    EXPECT_EQ(Set(R"({"server":"crypt","fault":")" + fault + "\"}").status, 200) << fault;
  }
}

TEST_F(ControlFaultsTest, LimitsTheSizeOfAHugeBody) {
  const Reply reply = Set(R"({"server":0,"fault":"json-huge","number":67108865})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "number");
  EXPECT_EQ(ErrorPart(reply, "message"),
            "\"number\" must be at most 67108864 (64 MiB) for the fault \"json-huge\"");
  EXPECT_EQ(Set(R"({"server":0,"fault":"json-huge","number":67108864})").status, 200);
  EXPECT_EQ(Set(R"({"server":0,"fault":"slow","number":67108865})").status, 200);
}

TEST_F(ControlFaultsTest, ResetRestoresTheSeedOfTheStart) {
  EXPECT_EQ(Change("POST", "seed", R"({"seed":42})").status, 200);
  EXPECT_EQ(Change("POST", "reset").status, 200);
  EXPECT_TRUE(Read("state").Get("seed").IsNil());
}

TEST(FaultsSeedTest, ComesBackWithReset) {
  Faults faults;
  faults.Seed(7);
  faults.SeedUntilReset(42);
  EXPECT_EQ(faults.GetSeed(), 42U);
  faults.Reset();
  EXPECT_EQ(faults.GetSeed(), 7U);
}

class ControlTlsFaultsTest : public ControlTest {
 protected:
  ControlTlsFaultsTest() : ControlTest(Secured()) {}
  static Options Secured() {
    Options options;
    options.tls = true;
    return options;
  }
  Reply SetSecurely(const std::string& body) const {
    return Peer({.authority = stand_.GetServerAuthority()})
        .Send("POST", Path("faults"), body, {{"Authorization", Authorization()}});
  }
};

// Whoever checks certificates could not reach the control interface any more to clear the fault.
TEST_F(ControlTlsFaultsTest, DoNotReplaceTheCertificateOfTheCryptService) {
  const Reply reply = SetSecurely(R"({"server":"crypt","fault":"server-certificate"})");
  EXPECT_EQ(reply.status, 400) << reply.body;
  EXPECT_EQ(ErrorPart(reply, "member"), "server");
  EXPECT_EQ(SetSecurely(R"({"server":0,"fault":"server-certificate"})").status, 200);
}

TEST_F(ControlFaultsTest, RefusesATextThatIsNoHeader) {
  for (const char* fault : {"wrong-date", "wrong-content-type", "sec-status"}) {
    const Reply reply = Set(std::string(R"({"server":0,"text":"a\r\nX: b","fault":")") + fault + "\"}");
    EXPECT_EQ(reply.status, 400) << fault;
    EXPECT_EQ(ErrorPart(reply, "member"), "text") << fault;
  }
}

TEST_F(ControlFaultsTest, NamesTheAllowedValues) {
  EXPECT_THAT(Allowed(Set(R"({"server":0,"fault":"slwo"})")), Contains("slow"));
  for (const char* server : {"\"x\"", "0.0", "null", "[\"0\"]"}) {
    const Reply reply = Set(std::string("{\"fault\":\"slow\",\"server\":") + server + "}");
    EXPECT_EQ(ErrorPart(reply, "member"), "server") << server;
    EXPECT_THAT(Allowed(reply), ElementsAre("crypt", "all", "0", "1", "2")) << server;
  }
  EXPECT_EQ(ErrorPart(Set(R"({"server":0,"fault":"slow","uses":-1})"), "message"),
            "\"uses\" must be an integer from 0 to 2147483647");
}

}  // namespace
}  // namespace CryptStand

#include <gtest/gtest.h>

#include "tests/stand/control_peer.h"
#include "tests/stand/raw_peer.h"

namespace CryptStand {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Options WithProxy() {
  Options options;
  options.proxyPort = 0;
  return options;
}

class ControlProxyTest : public ControlTest {
 protected:
  ControlProxyTest() : ControlTest(WithProxy()) {}
};

TEST_F(ControlTest, HasNoProxyUnlessAsked) {
  EXPECT_EQ(Get(Path("proxy")).status, 404);
  EXPECT_EQ(Change("DELETE", "proxy").status, 404);
  const Reply reply = Change("POST", "faults", R"({"server":"proxy","fault":"down"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "server");
}

TEST_F(ControlProxyTest, IsTakenDownAndBroughtUp) {
  EXPECT_EQ(ReadText(Read("proxy"), "url"), stand_.GetProxyUrl());
  EXPECT_EQ(ReadBool(Read("proxy"), "up"), true);
  EXPECT_EQ(Change("POST", "faults", R"({"server":"proxy","fault":"down"})").status, 200);
  EXPECT_EQ(ReadBool(Read("proxy"), "up"), false);
  EXPECT_EQ(ReadText(ReadList("faults", "set").at(0), "server"), "proxy");
  EXPECT_EQ(Change("POST", "reset").status, 200);
  EXPECT_EQ(ReadBool(Read("proxy"), "up"), true);
}

TEST_F(ControlTest, ShowsInTheStateThatThereIsNoProxy) {
  EXPECT_FALSE(ReadMap(Read("state"), "proxy").has_value());
}

TEST_F(ControlProxyTest, IsPartOfTheState) {
  ASSERT_TRUE(stand_.SetFault(kProxy, {.type = FaultType::Down}));
  const KVMap proxy = ReadMap(Read("state"), "proxy").value_or(KVMap());
  EXPECT_EQ(ReadText(proxy, "url"), stand_.GetProxyUrl());
  EXPECT_EQ(ReadBool(proxy, "up"), false);
}

TEST_F(ControlProxyTest, RefusesFaultsThatItDoesNotKnow) {
  const Reply reply = Change("POST", "faults", R"({"server":"proxy","fault":"bad-signature"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(ErrorPart(reply, "member"), "fault");
  EXPECT_THAT(Allowed(reply), ElementsAre("down", "slow", "status", "drop"));
}

TEST_F(ControlProxyTest, KnowsMethodsAsOperations) {
  const Reply reply = Change("POST", "faults", R"({"server":"proxy","fault":"slow","operation":"status"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_THAT(Allowed(reply), testing::Contains("CONNECT"));
  const char* body = R"({"server":"proxy","fault":"slow","operation":"CONNECT"})";
  EXPECT_EQ(Change("POST", "faults", body).status, 200);
}

TEST_F(ControlProxyTest, ShowsWhatPassedAndForgetsIt) {
  const int port = std::stoi(stand_.GetProxyUrl().substr(stand_.GetProxyUrl().rfind(':') + 1));
  RawPeer peer(port);
  peer.Send("GET " + Server("status") + " HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_THAT(peer.ReadAll(), HasSubstr("alive"));
  const auto records = ReadList("proxy", "records");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(ReadText(records[0], "method"), "GET");
  EXPECT_EQ(ReadText(records[0], "host"), "127.0.0.1");
  EXPECT_EQ(Change("DELETE", "proxy").status, 200);
  EXPECT_TRUE(ReadList("proxy", "records").empty());
}

TEST_F(ControlTest, RefusesAServerCertificateWithoutTls) {
  const Reply reply = Change("POST", "faults", R"({"server":"0","fault":"server-certificate"})");
  EXPECT_EQ(reply.status, 400);
  EXPECT_THAT(ErrorPart(reply, "message"), HasSubstr("--tls"));
}

}  // namespace
}  // namespace CryptStand

#include "tests/support/client_internals_fixture.h"

namespace OruKalvix {
namespace {

using OruGuiBase::Blob;
using OruGuiBase::Val;
using ::testing::ElementsAre;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Token;

// The command at hand is "signRequest": a short payload and a short response.
class Sweep : public TestSupport::ClientInternalsTest {
 protected:
  Sweep() { UseServers({"https://one.example", "https://two.example", "https://three.example"}); }

  static CannedResponse Signed(const char* base64 = "c2ln") {
    return Payload(std::string(R"({"type":"signResponse","signedHashes":[")") + base64 + R"("]})");
  }
  bool Run() { return peer.KeyServerSign(CryptClient::GetKeyHandle("k", "1"), "RSA", {}, signature); }

  Blob signature;
};

constexpr const char* kToken = "POST https://crypt.example/api/crypt/authztoken/room%201";

// A command probes the server, fetches a token and posts, in this order.
TEST_F(Sweep, ProbesFetchesATokenAndPosts) {
  http.Then(Alive()).Then(Token("t")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_THAT(http.GetLines(),
              ElementsAre("GET https://one.example/status", kToken, "POST https://one.example/rest/json"));
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "https://one.example");
}

// Without key servers a command fails with "Invalid key server URL" and sends nothing.
TEST_F(Sweep, FailsWithoutServersAndWithoutAnyExchange) {
  client.SetKeyServer({});
  peer.keyServerCursor.attempts = 9;
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Invalid key server URL");
  EXPECT_EQ(peer.keyServerCursor.attempts, 0U);
}

TEST_F(Sweep, GoesOnToTheNextServerWhenAProbeFails) {
  http.Then(NoExchange("down")).Then(Alive()).Then(Token("t")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://one.example/status", "GET https://two.example/status",
                                           kToken, "POST https://two.example/rest/json"));
  EXPECT_EQ(Error(), "Could not connect to key server: down");
}

TEST_F(Sweep, GoesOnToTheNextServerWhenADateIsMissing) {
  http.Then(Json("")).Then(Alive()).Then(Token("t")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(Error(), "Invalid key server time []");
}

// A token that cannot be fetched ends the command with servers still untried.
TEST_F(Sweep, StopsAtOnceWhenTokenCannotBeFetched) {
  http.Then(Alive()).Then(Status(403));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 403");
  EXPECT_EQ(http.GetRequestCount(), 2U);
  EXPECT_EQ(peer.keyServerCursor.attempts, 1U);
}

// A response without a usable token ends the command with servers still untried.
TEST_F(Sweep, StopsAtOnceWhenTheTokenIsEmpty) {
  http.Then(Alive()).Then(Token(""));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Invalid authorization token");
  EXPECT_EQ(http.GetRequestCount(), 2U);
}

TEST_F(Sweep, GoesOnToTheNextServerWhenAServerRefusesTheCommand) {
  http.Then(Alive()).Then(Token("t1")).Then(ErrorCode(607));
  http.Then(Alive()).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(Error(), "607 Key Not Found");
}

TEST_F(Sweep, GoesOnToTheNextServerWhenThePostFails) {
  http.Then(Alive()).Then(Token("t1")).Then(Status(500));
  http.Then(Alive()).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(Error(), "HTTP 500");
}

TEST_F(Sweep, GoesOnToTheNextServerWhenTheResponseIsOfAnotherType) {
  http.Then(Alive()).Then(Token("t1")).Then(Payload(R"({"type":"decryptResponse"})"));
  http.Then(Alive()).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(Error(), "Unexpected response type decryptResponse");
}

TEST_F(Sweep, GoesOnToTheNextServerWhenTheResponseLacksAMember) {
  http.Then(Alive()).Then(Token("t1")).Then(Payload(R"({"type":"signResponse"})"));
  http.Then(Alive()).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(Error(), "Could not sign hash: Invalid signedHashes");
}

// When all servers failed, the message of the last attempt stands.
TEST_F(Sweep, LeavesTheLastMessageWhenNoServerIsLeft) {
  http.Then(Alive()).Then(Token("t1")).Then(ErrorCode(607));
  http.Then(NoExchange("down"));
  http.Then(Alive()).Then(Token("t3")).Then(ErrorCode(619));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "619 Service Temporary Unavailable");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "");
  EXPECT_EQ(peer.keyServerCursor.attempts, 3U);
}

TEST_F(Sweep, FetchesATokenOfItsOwnForEachAttempt) {
  http.Then(Alive()).Then(Token("first")).Then(Status(500));
  http.Then(Alive()).Then(Token("second")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "first");
  EXPECT_EQ(HeaderOf(http.GetRequest(5), "X-SEC-AUTHZTOKEN"), "second");
  EXPECT_EQ(http.GetRequest(1).body.find("https://two.example"), std::string::npos);
  EXPECT_NE(http.GetRequest(4).body.find(R"("keyserver":"https://two.example")"), std::string::npos);
}

TEST_F(Sweep, PostsTheSameEnvelopeToEachServer) {
  http.Then(Alive()).Then(Token("t1")).Then(ErrorCode(606));
  http.Then(Alive()).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetRequest(2).body, http.GetRequest(5).body);
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"signRequest","signatureKey":{"type":"handle","id":"k","subId":"1"},)"
                     R"("algorithm":"RSA","hashesToBeSigned":[""]})"));
}

// Each command begins where the last one began, and probes a dead server there again.
TEST_F(Sweep, StartsOverForEachCommandAndProbesADeadServerAgain) {
  http.Then(NoExchange("down")).Then(Alive()).Then(Token("t1")).Then(Signed());
  ASSERT_TRUE(Run());
  http.Then(NoExchange("still down")).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetLines()[4], "GET https://one.example/status");
  EXPECT_EQ(http.GetLines()[6], "POST https://two.example/rest/json");
}

TEST_F(Sweep, SparesAKnownServerTheProbeInTheNextCommand) {
  http.Then(Alive()).Then(Token("t1")).Then(Signed());
  ASSERT_TRUE(Run());
  http.Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetRequestCount(), 5U);
}

TEST_F(Sweep, ProbesAKnownServerForEachCommandUnderCertAuth) {
  peer.certAuth = true;
  http.Then(Alive()).Then(Token("t1")).Then(Signed());
  ASSERT_TRUE(Run());
  http.Then(Alive()).Then(Token("t2")).Then(Signed());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetRequestCount(), 6U);
}

// A single server is tried once for each command wherever the base stands.
TEST_F(Sweep, TriesTheOneServerOncePerCommandWhereverTheBaseStands) {
  *CryptClientTestPeer::GetKeyServerBase() = 0xFFFFFFFF;
  client.SetKeyServer(TestSupport::Strings({"https://only.example"}));
  http.Then(NoExchange("down"));
  EXPECT_FALSE(Run());
  http.Then(Alive()).Then(Token("t")).Then(Signed());
  EXPECT_TRUE(Run());
}

TEST_F(Sweep, CountsAnElementThatIsNoUrlAsOneFailedServer) {
  OruGuiBase::Array<Val> servers;
  servers.Append(Val(true));
  servers.Append(Val("https://two.example"));
  *CryptClientTestPeer::GetKeyServerBase() = 0;
  client.SetKeyServer(servers);
  http.Then(NoExchange("no host")).Then(Alive()).Then(Token("t")).Then(Signed());
  EXPECT_TRUE(Run());
  EXPECT_EQ(http.GetRequest(1).url.find("https://two.example/status?"), 0U);
}

}  // namespace
}  // namespace OruKalvix

#include "tests/support/client_internals_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::KVMap;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::Map;
using TestSupport::NoExchange;
using TestSupport::RecordedRequest;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Token;
using TestSupport::TraceRecorder;

constexpr auto kSign = KeyServerCommand::Sign;
constexpr auto kDeleteKey = KeyServerCommand::DeleteKey;

class Tokens : public TestSupport::ClientInternalsTest {
 protected:
  /// The URL that a client with this base builds.
  std::string Url(const char* base, const char* first, const char* second, const char* third,
                  const char* fourth) {
    CryptClient other(&http, base, "", "");
    return Str(CryptClientTestPeer(other).GetServiceUrl(first, second, third, fourth));
  }
};

// A crypt-service URL is base, "crypt" and escaped segments up to the first empty one.
TEST_F(Tokens, AreRequestedAtUrlOfEscapedSegments) {
  const struct {
    const char* base;
    const char* segments[4];
    const char* url;
    const char* reason;
  } rows[] = {
      {"https://s/a", {"key", "r", "", ""}, "https://s/a/crypt/key/r", "two segments"},
      {"https://s/a/", {"key", "r", "", ""}, "https://s/a/crypt/key/r", "no second slash after the base"},
      {"https://s", {"a", "b", "c", "d"}, "https://s/crypt/a/b/c/d", "all four"},
      {"https://s", {"authztoken", "", "", ""}, "https://s/crypt/authztoken", "an empty id"},
      {"https://s", {"a", "", "c", "d"}, "https://s/crypt/a", "later segments are dropped"},
      {"https://s", {"", "b", "c", "d"}, "https://s/crypt", "nothing after an empty first one"},
      {"https://s", {"a", "b/c", "", ""}, "https://s/crypt/a/b%2Fc", "a slash makes no segment"},
      {"https://s", {"a", "b c?d#e%", "", ""}, "https://s/crypt/a/b%20c%3Fd%23e%25", "reserved characters"},
      {"https://s", {"a", "A-Z.z_0~", "", ""}, "https://s/crypt/a/A-Z.z_0~", "unreserved characters"},
      {"https://s", {"a", "\xC3\xA4", "", ""}, "https://s/crypt/a/%C3%A4", "bytes of UTF-8"},
      {"https://s", {"a", "/", "", ""}, "https://s/crypt/a/%2F", "a slash alone"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Url(row.base, row.segments[0], row.segments[1], row.segments[2], row.segments[3]), row.url)
        << row.reason;
  }
}

TEST_F(Tokens, GetNoSecondSlashAfterServiceUrl) {
  CryptClient other(&http, "https://crypt.example/", "", kRoom);
  http.Then(Token("t"));
  ASSERT_TRUE(CryptClientTestPeer(other).FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_EQ(http.GetRequest(0).url, "https://crypt.example/crypt/authztoken/g");
}

// The id of a token request is escaped as one segment, slashes included.
TEST_F(Tokens, AreRequestedWithIdAsOneSegment) {
  http.Then(Token("t"));
  ASSERT_TRUE(peer.FetchAuthzToken(kSign, "a/b?c d", KVMap()));
  EXPECT_EQ(http.GetRequest(0).url, "https://crypt.example/api/crypt/authztoken/a%2Fb%3Fc%20d");
}

// Without a service URL a token request fails with "Invalid URL" and sends nothing.
TEST_F(Tokens, NeedAServiceUrl) {
  CryptClient other(&http, "", "", kRoom);
  CryptClientTestPeer otherPeer(other);
  otherPeer.authzToken = "old";
  EXPECT_EQ(Str(otherPeer.GetServiceUrl("key", "r", "", "")), "");
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  otherPeer.SetError("");
  EXPECT_FALSE(otherPeer.FetchAuthzToken(kSign, "room", KVMap()));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  EXPECT_EQ(Str(otherPeer.authzToken), "old");
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

// A token request names the key server in use and the operation, and has no authorization of its own.
TEST_F(Tokens, AreRequestedForServerAndOperation) {
  UseKnownServer();
  http.Then(Token("secret"));
  ASSERT_TRUE(peer.FetchAuthzToken(kSign, "room 1", KVMap()));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://crypt.example/api/crypt/authztoken/room%201");
  EXPECT_EQ(request.body, R"({"keyserver":"https://one.example","operation":"signRequest"})");
  EXPECT_EQ(request.headers.size(), 1U);
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(Str(peer.authzToken), "secret");
}

TEST_F(Tokens, AreRequestedWithTransactionAndKey) {
  UseKnownServer();
  client.SetTransaction("tx-9");
  http.Then(Token("t"));
  ASSERT_TRUE(peer.FetchAuthzToken(kDeleteKey, "group", CryptClient::GetKeyHandle("k", "2")));
  EXPECT_EQ(http.GetRequest(0).body,
            R"({"keyserver":"https://one.example","operation":"deleteKeyRequest","transaction":"tx-9",)"
            R"("key":{"type":"handle","id":"k","subId":"2"}})");
}

TEST_F(Tokens, AreRequestedWithoutEmptyTransaction) {
  UseKnownServer();
  client.SetTransaction("tx-9");
  client.SetTransaction("");
  http.Then(Token("t"));
  ASSERT_TRUE(peer.FetchAuthzToken(kSign, "g", Map(R"({"id":"k"})")));
  EXPECT_EQ(http.GetRequest(0).body,
            R"({"keyserver":"https://one.example","operation":"signRequest","key":{"id":"k"}})");
}

TEST_F(Tokens, AreRequestedWithoutEmptyKey) {
  UseKnownServer();
  client.SetTransaction("tx-9");
  http.Then(Token("t"));
  ASSERT_TRUE(peer.FetchAuthzToken(kDeleteKey, "g", KVMap()));
  EXPECT_EQ(http.GetRequest(0).body,
            R"({"keyserver":"https://one.example","operation":"deleteKeyRequest","transaction":"tx-9"})");
}

TEST_F(Tokens, AreRequestedForEmptyServerWhenNoneIsInUse) {
  http.Then(Token("t"));
  ASSERT_TRUE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_EQ(http.GetRequest(0).body, R"({"keyserver":"","operation":"signRequest"})");
}

// A token request with an empty id goes to the bare "authztoken".
TEST_F(Tokens, AreRequestedAtBareUrlForEmptyId) {
  http.Then(Token("t"));
  ASSERT_TRUE(peer.FetchAuthzToken(kSign, "", KVMap()));
  EXPECT_EQ(http.GetRequest(0).url, "https://crypt.example/api/crypt/authztoken");
}

// A failed token request gives "Could not get authorization token: %s" and leaves the old token.
TEST_F(Tokens, StayAsTheyWereWhenExchangeFails) {
  peer.authzToken = "old";
  http.Then(NoExchange("no route 100%s")).Then(Status(403)).Then(Json("no json"));
  EXPECT_FALSE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_EQ(Error(), "Could not get authorization token: no route 100%s");
  EXPECT_FALSE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 403");
  EXPECT_FALSE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_THAT(Error(), StartsWith("Could not get authorization token: Could not parse response: "));
  EXPECT_EQ(Str(peer.authzToken), "old");
}

// A response without a body holds no token: "Invalid authorization token".
TEST_F(Tokens, AreInvalidWhenTheResponseHasNoBody) {
  const TraceRecorder traces;
  http.Then(Json(""));
  EXPECT_FALSE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_EQ(Error(), "Invalid authorization token");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

// A token that is missing, empty or not a string is "Invalid authorization token".
TEST_F(Tokens, AreInvalidWhenMissingEmptyOrNotString) {
  const struct {
    const char* body;
    bool reported;
    const char* reason;
  } rows[] = {
      {"", true, "an empty body is an empty response"}, {"{}", true, "missing"},
      {R"({"authztoken":7})", true, "a number"},        {R"({"authztoken":["t"]})", true, "a list"},
      {R"({"authztoken":""})", false, "empty"},         {R"({"AuthzToken":"t"})", true, "another case"},
  };
  for (const auto& row : rows) {
    const TraceRecorder traces;
    peer.authzToken = "old";
    http.Then(Json(row.body));
    EXPECT_FALSE(peer.FetchAuthzToken(kSign, "g", KVMap())) << row.reason;
    EXPECT_EQ(Error(), "Invalid authorization token") << row.reason;
    EXPECT_EQ(Str(peer.authzToken), "") << row.reason;
    EXPECT_EQ(traces.GetInvalidTypes().size(), row.reported ? 1U : 0U) << row.reason;
  }
}

TEST_F(Tokens, ReplaceOldTokenAfterFailure) {
  http.Then(Status(500)).Then(Json(R"({"more":1,"authztoken":"fresh"})"));
  EXPECT_FALSE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_TRUE(peer.FetchAuthzToken(kSign, "g", KVMap()));
  EXPECT_EQ(Str(peer.authzToken), "fresh");
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 500");
}

}  // namespace
}  // namespace OruKalvix

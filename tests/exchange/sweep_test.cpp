// The rules by which a command tries each key server, proven for every command that is sent in this way. The
// suites of the single commands prove what a command sends and how it reads its response. GetAuditLog visits
// every server and has rules of its own (audit_log_test.cpp).
#include <functional>
#include <vector>

#include "tests/support/client_internals_fixture.h"
#include "tests/support/pki.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::Val;
using ::testing::ElementsAre;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Pki;
using TestSupport::Quoted;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;

/// One call of a command, and what it left in its caller's variable.
struct Call {
  CryptClient& client;
  CryptClientTestPeer& peer;
  std::string handedOut = "untouched";
};

bool ConfigGroup(Call& call) {
  return call.client.ConfigGroup("group 1", "", "", {}, {}, {});
}
bool Reencrypt(Call& call) {
  return call.client.Reencrypt("group 1", "certificate");
}
bool ImportKey(Call& call) {
  return call.client.ImportKey("group 1", "id", "key", "password");
}
bool DeleteKey(Call& call) {
  return call.client.DeleteKey("group 1", CryptClient::GetKeyHandle("k", "1"));
}
bool GenerateWrappedKey(Call& call) {
  AnsiStr wrappedKey = TestSupport::Ansi(call.handedOut);
  const bool isDone = call.client.CreateKey("the room", {}, wrappedKey);
  call.handedOut = Str(wrappedKey);
  return isDone;
}
Array<Val> OneKey() {
  return TestSupport::Map(R"({"keys":[{"id":"1","data":"wrapped"}]})").Get("keys").AsArray();
}
bool ModifyWrappedKey(Call& call) {
  Array<Val> result;
  const bool isDone = call.client.UpdateKey("the room", {}, OneKey(), result);
  if (!result.IsEmpty()) call.handedOut = TestSupport::JsonText(Val(result));
  return isDone;
}
bool ExportWrappedKey(Call& call) {
  Array<Val> result;
  const bool isDone = call.client.ExportKeys("the room", OneKey(), result);
  if (!result.IsEmpty()) call.handedOut = TestSupport::JsonText(Val(result));
  return isDone;
}
bool Sign(Call& call) {
  AnsiStr signature = TestSupport::Ansi(call.handedOut);
  const bool isDone = call.client.Sign(CryptClient::GetKeyHandle("k", "1"), "RSA", "aGFzaA==", signature);
  call.handedOut = Str(signature);
  return isDone;
}
// Only Encrypt and Decrypt send these two, amid commands of other names: so they are called by themselves.
bool GetKey(Call& call) {
  IntegrityKey key;
  key.id = TestSupport::Ansi(call.handedOut);
  const bool isDone = call.peer.KeyServerGetKey("integrity", "", key);
  call.handedOut = Str(key.id);
  return isDone;
}
bool Decrypt(Call& call) {
  AnsiStr contentKey = TestSupport::Ansi(call.handedOut);
  const bool isDone = call.peer.KeyServerDecrypt("wrapped", "ZW5j", contentKey);
  call.handedOut = Str(contentKey);
  return isDone;
}

/// Members of a response of the right type that the command cannot use, and the message about it.
struct BadMembers {
  std::string members;
  const char* message;
};

/// A command: how it is called, the token that it needs, its responses, and what it leaves.
struct CommandRow {
  const char* name;
  bool (*run)(Call& call);
  const char* request;
  const char* response;
  const char* tokenId;
  const char* tokenKey = "";
  /// Members of a good response after its type; functions, since certificates are made on first use.
  std::function<std::string()> goodMembers = [] { return ""; };
  std::function<std::vector<BadMembers>()> badMembers = [] { return std::vector<BadMembers>(); };
  const char* handedOut = "untouched";
};

std::string RoomCertificate() {
  return R"(,"encodedX509Certificate":)" + Quoted(Pki::Get().room.certificate.ToBase64());
}
std::string IntegrityKeyMember() {
  return R"(,"key":{"type":"x","id":"integrity","subId":"7","encodedCertificate":)" +
         Quoted(Pki::Get().integrity.certificate.ToBase64()) + "}";
}

constexpr const char* kHandle = R"(,"key":{"type":"handle","id":"k","subId":"1"})";

std::vector<CommandRow> GetGroupCommands() {
  return {
      {"ConfigGroup", ConfigGroup, "configGroupRequest", "configGroupResponse", "group%201"},
      {"Reencrypt", Reencrypt, "reencryptRequest", "reencryptResponse", "group%201"},
      {"ImportKey", ImportKey, "importKeyRequest", "importKeyResponse", "group%201"},
      {"DeleteKey", DeleteKey, "deleteKeyRequest", "deleteKeyResponse", "group%201", kHandle},
  };
}

std::vector<CommandRow> GetWrappedKeyCommands() {
  return {
      {"GenerateWrappedKey", GenerateWrappedKey, "generateWrappedKeyRequest", "generateWrappedKeyResponse",
       "the%20room", "", [] { return RoomCertificate() + R"(,"encodedWrappedKey":"new")"; },
       [] {
         return std::vector<BadMembers>{
             {R"(,"encodedWrappedKey":"new")",
              "Could not generate wrapped key: Invalid encodedX509Certificate"},
             {R"(,"encodedWrappedKey":"new","encodedX509Certificate":"garbage")",
              "Could not generate wrapped key: Could not decode encodedX509Certificate"},
             {RoomCertificate(), "Could not generate wrapped key: Invalid encodedWrappedKey"}};
       },
       "new"},
      {"ModifyWrappedKey", ModifyWrappedKey, "modifyWrappedKeyRequest", "modifyWrappedKeyResponse",
       "the%20room", "", [] { return R"(,"encodedWrappedKey":"new")"; },
       [] {
         return std::vector<BadMembers>{{"", "Could not modify wrapped key: Invalid encodedWrappedKey"}};
       },
       R"([{"id":"1","data":"new"}])"},
      {"ExportWrappedKey", ExportWrappedKey, "exportWrappedKeyRequest", "exportWrappedKeyResponse",
       "the%20room", "", [] { return R"(,"encodedPrivateKey":"plain key")"; },
       [] {
         return std::vector<BadMembers>{{"", "Could not decrypt room key: Invalid encodedPrivateKey"}};
       },
       R"([{"id":"1","plain":"plain key"}])"},
  };
}

std::vector<CommandRow> GetKeyCommands() {
  return {
      {"Sign", Sign, "signRequest", "signResponse", "room%201", kHandle,
       [] { return R"(,"signedHashes":["c2ln"])"; },
       [] {
         return std::vector<BadMembers>{
             {"", "Could not sign hash: Invalid signedHashes"},
             {R"(,"signedHashes":["not base64!"])", "Could not decode signedHashes"}};
       },
       "c2ln"},
      {"GetKey", GetKey, "getKeyRequest", "getKeyResponse", "room%201", "", IntegrityKeyMember,
       [] {
         return std::vector<BadMembers>{{"", "Could not get integrity certificate: Invalid subId"}};
       },
       "integrity"},
      {"Decrypt", Decrypt, "decryptRequest", "decryptResponse", "room%201", "",
       [] { return R"(,"plainData":["a2V5"])"; },
       [] {
         return std::vector<BadMembers>{{"", "Could not decrypt document key: Invalid plainData"}};
       },
       "a2V5"},
  };
}

std::string NameOf(const ::testing::TestParamInfo<CommandRow>& row) {
  return row.param.name;
}

class Sweep : public TestSupport::ClientInternalsTest, public ::testing::WithParamInterface<CommandRow> {
 protected:
  Sweep() { UseServers({"https://one.example", "https://two.example", "https://three.example"}); }

  static CannedResponse Response(const std::string& type, const std::string& members) {
    return Payload(R"({"type":")" + type + "\"" + members + "}");
  }
  static CannedResponse Good() { return Response(GetParam().response, GetParam().goodMembers()); }
  static std::string TokenLine() {
    return std::string("POST https://crypt.example/api/crypt/authztoken/") + GetParam().tokenId;
  }
  /// The next server is alive, a token is given for it, and it responds with this.
  void Attempt(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }
  bool Run() { return GetParam().run(call); }
  /// The first server responds with `bad`; the command goes on and succeeds with the second one.
  void ExpectSecondServerSucceeds(const CannedResponse& bad, const std::string& message) {
    call.handedOut = "untouched";
    Attempt(bad);
    Attempt(Good());
    EXPECT_TRUE(Run());
    EXPECT_EQ(call.handedOut, GetParam().handedOut);
    EXPECT_EQ(http.GetLines().back(), "POST https://two.example/rest/json");
    EXPECT_EQ(Error(), message);
  }

  Call call{client, peer};
};

INSTANTIATE_TEST_SUITE_P(Group, Sweep, ::testing::ValuesIn(GetGroupCommands()), NameOf);
INSTANTIATE_TEST_SUITE_P(WrappedKey, Sweep, ::testing::ValuesIn(GetWrappedKeyCommands()), NameOf);
INSTANTIATE_TEST_SUITE_P(Key, Sweep, ::testing::ValuesIn(GetKeyCommands()), NameOf);

TEST_P(Sweep, ProbesFetchesTokenAndPosts) {
  Attempt(Good());
  ASSERT_TRUE(Run());
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://one.example/status", TokenLine(),
                                           "POST https://one.example/rest/json"));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":")" +
                                         std::string(GetParam().request) + "\"" + GetParam().tokenKey + "}");
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "https://one.example");
  EXPECT_EQ(call.handedOut, GetParam().handedOut);
  EXPECT_EQ(Error(), "");
}

TEST_P(Sweep, FailsWithoutServersAndSendsNothing) {
  client.SetKeyServer({});
  peer.keyServerCursor.attempts = 9;
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Invalid key server URL");
  EXPECT_EQ(peer.keyServerCursor.attempts, 0U);
  EXPECT_EQ(http.GetRequestCount(), 0U);
  EXPECT_EQ(call.handedOut, "untouched");
}

// ---- What makes a command try the next server

TEST_P(Sweep, TriesNextServerWhenProbeFails) {
  http.Then(NoExchange("down"));
  Attempt(Good());
  ASSERT_TRUE(Run());
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://one.example/status", "GET https://two.example/status",
                                           TokenLine(), "POST https://two.example/rest/json"));
  EXPECT_EQ(Error(), "Could not connect to key server: down");
  EXPECT_EQ(call.handedOut, GetParam().handedOut);
}

TEST_P(Sweep, TriesNextServerWhenProbeHasNoDate) {
  http.Then(Json(""));
  Attempt(Good());
  ASSERT_TRUE(Run());
  EXPECT_EQ(Error(), "Invalid key server time []");
}

TEST_P(Sweep, TriesNextServerWhenServerRefuses) {
  ExpectSecondServerSucceeds(ErrorCode(607), "607 Key Not Found");
}

TEST_P(Sweep, TriesNextServerWhenPostFails) {
  ExpectSecondServerSucceeds(Status(503), "HTTP 503");
}

TEST_P(Sweep, TriesNextServerWhenResponseHasAnotherType) {
  peer.certAuth = true;  // A probe for each attempt, so that all rows look alike.
  for (const char* other : {"getAuditLogResponse", GetParam().request}) {
    const std::string type = other;
    ExpectSecondServerSucceeds(Response(type, GetParam().goodMembers()), "Unexpected response type " + type);
  }
}

TEST_P(Sweep, TriesNextServerWhenResponseHasNoPayload) {
  peer.certAuth = true;
  ExpectSecondServerSucceeds(Payload("{}"), "Invalid payload");
  ExpectSecondServerSucceeds(Json(""), "Invalid payload");
}

// ---- What ends a command

TEST_P(Sweep, StopsAtFirstServerThatSucceeds) {
  Attempt(Good());
  ASSERT_TRUE(Run());
  for (const auto& request : http.GetRequests()) {
    EXPECT_EQ(request.url.find("two.example"), std::string::npos);
    EXPECT_EQ(request.url.find("three.example"), std::string::npos);
  }
}

TEST_P(Sweep, StopsWhenTokenFails) {
  http.Then(Alive()).Then(Status(403));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 403");
  EXPECT_EQ(http.GetRequestCount(), 2U);
  EXPECT_EQ(peer.keyServerCursor.attempts, 1U);
  EXPECT_EQ(call.handedOut, "untouched");
}

TEST_P(Sweep, StopsWhenTokenIsEmpty) {
  http.Then(Alive()).Then(Token(""));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Invalid authorization token");
  EXPECT_EQ(http.GetRequestCount(), 2U);
  EXPECT_EQ(call.handedOut, "untouched");
}

TEST_P(Sweep, FailsWithLastMessageWhenNoServerIsLeft) {
  Attempt(ErrorCode(607));
  http.Then(NoExchange("down"));
  Attempt(ErrorCode(619));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "619 Service Temporary Unavailable");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "");
  EXPECT_EQ(peer.keyServerCursor.attempts, 3U);
  EXPECT_EQ(call.handedOut, "untouched");
}

TEST_P(Sweep, FailsWithLastMessageWhenNoServerCanBeReached) {
  http.Then(NoExchange("down")).Then(NoExchange("down too")).Then(Status(500));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Could not connect to key server: HTTP 500");
  EXPECT_EQ(call.handedOut, "untouched");
}

// ---- What is sent to each server

TEST_P(Sweep, FetchesTokenForEachAttempt) {
  http.Then(Alive()).Then(Token("first")).Then(Status(500));
  http.Then(Alive()).Then(Token("second")).Then(Good());
  ASSERT_TRUE(Run());
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "first");
  EXPECT_EQ(HeaderOf(http.GetRequest(5), "X-SEC-AUTHZTOKEN"), "second");
  EXPECT_EQ(http.GetRequest(1).body.find("https://two.example"), std::string::npos);
  EXPECT_NE(http.GetRequest(4).body.find(R"("keyserver":"https://two.example")"), std::string::npos);
}

TEST_P(Sweep, PostsSameEnvelopeToEachServer) {
  Attempt(ErrorCode(606));
  Attempt(Good());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetRequest(2).body, http.GetRequest(5).body);
  EXPECT_NE(http.GetRequest(2).body.find(R"("payload":{"type":")" + std::string(GetParam().request) + "\""),
            std::string::npos);
}

// ---- Several commands of one client

TEST_P(Sweep, StartsAtSameServerAndProbesItAgainWhenItWasDown) {
  http.Then(NoExchange("down"));
  Attempt(Good());
  ASSERT_TRUE(Run());
  http.Then(NoExchange("still down")).Then(Token("t2")).Then(Good());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetLines()[4], "GET https://one.example/status");
  EXPECT_EQ(http.GetLines()[6], "POST https://two.example/rest/json");
}

TEST_P(Sweep, ProbesNoKnownServer) {
  Attempt(Good());
  ASSERT_TRUE(Run());
  http.Then(Token("t2")).Then(Good());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetRequestCount(), 5U);
}

TEST_P(Sweep, ProbesKnownServerUnderCertAuth) {
  peer.certAuth = true;
  Attempt(Good());
  ASSERT_TRUE(Run());
  Attempt(Good());
  ASSERT_TRUE(Run());
  EXPECT_EQ(http.GetRequestCount(), 6U);
}

// ---- Odd lists of servers

TEST_P(Sweep, TriesSingleServerOnceWhereverRotationStands) {
  *CryptClientTestPeer::GetKeyServerBase() = 0xFFFFFFFF;
  client.SetKeyServer(Strings({"https://only.example"}));
  http.Then(NoExchange("down"));
  EXPECT_FALSE(Run());
  Attempt(Good());
  EXPECT_TRUE(Run());
}

TEST_P(Sweep, CountsListElementThatIsNotUrlAsFailedServer) {
  Array<Val> servers;
  servers.Append(Val(true));
  servers.Append(Val("https://two.example"));
  TestSupport::BeginRotationAt(0);
  client.SetKeyServer(servers);
  http.Then(NoExchange("no host"));
  Attempt(Good());
  EXPECT_TRUE(Run());
  EXPECT_EQ(http.GetRequest(1).url.find("https://two.example/status?"), 0U);
}

/// The commands that read more of their response than its type.
class SweepOfReaders : public Sweep {};

INSTANTIATE_TEST_SUITE_P(WrappedKey, SweepOfReaders, ::testing::ValuesIn(GetWrappedKeyCommands()), NameOf);
INSTANTIATE_TEST_SUITE_P(Key, SweepOfReaders, ::testing::ValuesIn(GetKeyCommands()), NameOf);

TEST_P(SweepOfReaders, TriesNextServerWhenResponseCannotBeUsed) {
  peer.certAuth = true;
  for (const BadMembers& bad : GetParam().badMembers()) {
    ExpectSecondServerSucceeds(Response(GetParam().response, bad.members), bad.message);
  }
}

TEST_P(SweepOfReaders, FailsWhenNoResponseCanBeUsed) {
  peer.certAuth = true;
  for (const BadMembers& bad : GetParam().badMembers()) {
    for (int server = 0; server < 3; ++server) Attempt(Response(GetParam().response, bad.members));
    EXPECT_FALSE(Run()) << bad.message;
    EXPECT_EQ(Error(), bad.message);
  }
}

}  // namespace
}  // namespace OruKalvix

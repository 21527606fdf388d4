#include <functional>

#include "tests/support/client_fixture.h"

namespace OruKalvix {
namespace {

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using ::testing::ElementsAre;
using TestSupport::Alive;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::Map;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;

class GroupCommands : public TestSupport::ClientTest {
 protected:
  GroupCommands() { UseServers({"https://one.example", "https://two.example"}); }

  /// The next attempt meets this response.
  void Attempt(const TestSupport::CannedResponse& response) {
    http.Then(Alive()).Then(Token("t")).Then(response);
  }
  void AttemptAnsweredBy(const char* type) { Attempt(Payload(R"({"type":")" + std::string(type) + R"("})")); }
  bool Config(const Array<Val>& roots, const Array<Val>& issuers, const Array<Val>& urls) {
    return client.ConfigGroup("group 1", "its name", "owner", roots, issuers, urls);
  }
};

TEST_F(GroupCommands, ConfigGroupSendsAllItsMembersInOrder) {
  AttemptAnsweredBy("configGroupResponse");
  ASSERT_TRUE(Config(Strings({"r1", "r2"}), Strings({"i1"}), Strings({"http://crl.example/a", ""})));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"group 1","groupName":"its name",)"
                     R"("ownerGroupId":"owner","authnRootCertificates":["r1","r2"],)"
                     R"("authnIssuingCertificates":["i1"],"authnCrlUrls":["http://crl.example/a",""]})"));
  EXPECT_EQ(Error(), "");
}

// ConfigGroup sends empty texts and empty arrays as members.
TEST_F(GroupCommands, ConfigGroupSendsEmptyMembersToo) {
  AttemptAnsweredBy("configGroupResponse");
  ASSERT_TRUE(client.ConfigGroup("", "", "", {}, {}, {}));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"","groupName":"","ownerGroupId":"",)"
                     R"("authnRootCertificates":[],"authnIssuingCertificates":[],"authnCrlUrls":[]})"));
}

TEST_F(GroupCommands, ConfigGroupSendsElementsOfAnyTypeUnchanged) {
  AttemptAnsweredBy("configGroupResponse");
  const KVMap lists = Map(R"({"roots":[7,"r",null],"issuers":[{"a":[true]}],"urls":[[]]})");
  ASSERT_TRUE(
      Config(lists.Get("roots").AsArray(), lists.Get("issuers").AsArray(), lists.Get("urls").AsArray()));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"group 1","groupName":"its name",)"
                     R"("ownerGroupId":"owner","authnRootCertificates":[7,"r",null],)"
                     R"("authnIssuingCertificates":[{"a":[true]}],"authnCrlUrls":[[]]})"));
}

TEST_F(GroupCommands, ReencryptSendsOneCertificateAsASingleObject) {
  AttemptAnsweredBy("reencryptResponse");
  ASSERT_TRUE(client.Reencrypt("group 1", "the certificate"));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"reencryptRequest","groupId":"group 1","encryptionKey":)"
                     R"({"type":"externalCertificate","encodedCertificate":"the certificate"}})"));
}

TEST_F(GroupCommands, ReencryptSendsAnEmptyCertificateToo) {
  AttemptAnsweredBy("reencryptResponse");
  ASSERT_TRUE(client.Reencrypt("g", ""));
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"reencryptRequest","groupId":"g","encryptionKey":)"
                                              R"({"type":"externalCertificate","encodedCertificate":""}})"));
}

TEST_F(GroupCommands, ImportKeySendsTheKeyAsItWasGiven) {
  AttemptAnsweredBy("importKeyResponse");
  ASSERT_TRUE(client.ImportKey("group 1", "the id", "the\nkey", "pass \"word\""));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"importKeyRequest","groupId":"group 1","id":"the id",)"
                     R"("encodedKey":"the\nkey","password":"pass \"word\""})"));
}

TEST_F(GroupCommands, ImportKeySendsAnEmptyPasswordToo) {
  AttemptAnsweredBy("importKeyResponse");
  ASSERT_TRUE(client.ImportKey("g", "i", "k", ""));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"importKeyRequest","groupId":"g","id":"i","encodedKey":"k","password":""})"));
}

// DeleteKey sends the key handle in the token request and in the command.
TEST_F(GroupCommands, DeleteKeySendsTheHandleInTokenRequestAndCommand) {
  AttemptAnsweredBy("deleteKeyResponse");
  ASSERT_TRUE(client.DeleteKey("group 1", CryptClient::GetKeyHandle("i", "s")));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"deleteKeyRequest",)"
                                     R"("key":{"type":"handle","id":"i","subId":"s"}})");
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"deleteKeyRequest","groupId":"group 1",)"
                                              R"("key":{"type":"handle","id":"i","subId":"s"}})"));
}

TEST_F(GroupCommands, DeleteKeySendsAnEmptyHandleInTheCommandOnly) {
  AttemptAnsweredBy("deleteKeyResponse");
  ASSERT_TRUE(client.DeleteKey("g", {}));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"deleteKeyRequest"})");
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"deleteKeyRequest","groupId":"g","key":{}})"));
}

/// The four commands, each with what is common to all.
struct CommandRow {
  const char* name;
  std::function<bool(CryptClient&)> run;
  const char* request;
  const char* response;
};

class EachGroupCommand : public GroupCommands, public ::testing::WithParamInterface<CommandRow> {
 protected:
  bool Run() { return GetParam().run(client); }
  void Succeed() { AttemptAnsweredBy(GetParam().response); }
};

// Each group command asks for a token for its group.
TEST_P(EachGroupCommand, NeedsATokenForItsGroup) {
  Succeed();
  ASSERT_TRUE(Run());
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://one.example/status",
                                           "POST https://crypt.example/api/crypt/authztoken/group%201",
                                           "POST https://one.example/rest/json"));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":")" +
                                         std::string(GetParam().request) + R"("})");
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t");
}

// Each group command fails without key servers and sends nothing.
TEST_P(EachGroupCommand, FailsWithoutKeyServersAndWithoutAnyExchange) {
  client.SetKeyServer({});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Invalid key server URL");
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

// Each group command ends with the first server that succeeds.
TEST_P(EachGroupCommand, ReachesOneServerOnly) {
  Succeed();
  ASSERT_TRUE(Run());
  for (const auto& request : http.GetRequests()) {
    EXPECT_EQ(request.url.find("two.example"), std::string::npos);
  }
}

// When all servers refuse, a group command fails with the last one's code.
TEST_P(EachGroupCommand, FailsWithTheLastServersCodeWhenAllRefuse) {
  Attempt(ErrorCode(607));
  Attempt(ErrorCode(618));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "618 Read-only State");
}

// A success leaves the failure of a server before recorded.
TEST_P(EachGroupCommand, KeepsTheFirstServersFailureWhenTheSecondSucceeds) {
  Attempt(Status(503));
  Succeed();
  EXPECT_TRUE(Run());
  EXPECT_EQ(Error(), "HTTP 503");
}

// A group command goes on to the next server when a probe fails.
TEST_P(EachGroupCommand, GoesOnWhenAProbeFails) {
  http.Then(NoExchange("down"));
  Succeed();
  EXPECT_TRUE(Run());
  EXPECT_EQ(Error(), "Could not connect to key server: down");
}

// A group command ends at once when its token cannot be fetched.
TEST_P(EachGroupCommand, StopsAtOnceWithoutAToken) {
  http.Then(Alive()).Then(Status(403));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 403");
  EXPECT_EQ(http.GetRequestCount(), 2U);
}

// A group command needs the response type of its own.
TEST_P(EachGroupCommand, NeedsTheResponseOfItsOwnType) {
  AttemptAnsweredBy("getKeyResponse");
  AttemptAnsweredBy(GetParam().request);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Unexpected response type " + std::string(GetParam().request));
}

// A group command needs a payload in the response.
TEST_P(EachGroupCommand, NeedsAPayloadInTheResponse) {
  Attempt(Payload("{}"));
  Attempt(TestSupport::Json(""));
  EXPECT_FALSE(Run());
  EXPECT_EQ(Error(), "Invalid payload");
}

INSTANTIATE_TEST_SUITE_P(
    All, EachGroupCommand,
    ::testing::Values(CommandRow{"ConfigGroup",
                                 [](CryptClient& c) { return c.ConfigGroup("group 1", "", "", {}, {}, {}); },
                                 "configGroupRequest", "configGroupResponse"},
                      CommandRow{"Reencrypt", [](CryptClient& c) { return c.Reencrypt("group 1", "c"); },
                                 "reencryptRequest", "reencryptResponse"},
                      CommandRow{"ImportKey",
                                 [](CryptClient& c) { return c.ImportKey("group 1", "i", "k", "p"); },
                                 "importKeyRequest", "importKeyResponse"},
                      CommandRow{"DeleteKey", [](CryptClient& c) { return c.DeleteKey("group 1", {}); },
                                 "deleteKeyRequest", "deleteKeyResponse"}),
    [](const ::testing::TestParamInfo<CommandRow>& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace OruKalvix

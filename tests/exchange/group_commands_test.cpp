#include "tests/support/client_fixture.h"

namespace OruKalvix {
namespace {

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using TestSupport::Alive;
using TestSupport::Envelope;
using TestSupport::Map;
using TestSupport::Payload;
using TestSupport::Strings;
using TestSupport::Token;

class GroupCommands : public TestSupport::ClientTest {
 protected:
  GroupCommands() { UseServers({"https://one.example", "https://two.example"}); }

  /// The next attempt meets this response.
  void Attempt(const TestSupport::CannedResponse& response) {
    http.Then(Alive()).Then(Token("t")).Then(response);
  }
  void AttemptWithResponseOf(const char* type) {
    Attempt(Payload(R"({"type":")" + std::string(type) + R"("})"));
  }
  bool Config(const Array<Val>& roots, const Array<Val>& issuers, const Array<Val>& urls) {
    return client.ConfigGroup("group 1", "its name", "owner", roots, issuers, urls);
  }
};

TEST_F(GroupCommands, ConfigGroupSendsAllItsMembersInOrder) {
  AttemptWithResponseOf("configGroupResponse");
  ASSERT_TRUE(Config(Strings({"r1", "r2"}), Strings({"i1"}), Strings({"http://crl.example/a", ""})));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"group 1","groupName":"its name",)"
                     R"("ownerGroupId":"owner","authnRootCertificates":["r1","r2"],)"
                     R"("authnIssuingCertificates":["i1"],"authnCrlUrls":["http://crl.example/a",""]})"));
  EXPECT_EQ(Error(), "");
}

TEST_F(GroupCommands, ConfigGroupSendsEmptyMembers) {
  AttemptWithResponseOf("configGroupResponse");
  ASSERT_TRUE(client.ConfigGroup("", "", "", {}, {}, {}));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"","groupName":"","ownerGroupId":"",)"
                     R"("authnRootCertificates":[],"authnIssuingCertificates":[],"authnCrlUrls":[]})"));
}

TEST_F(GroupCommands, ConfigGroupSendsElementsOfAnyTypeUnchanged) {
  AttemptWithResponseOf("configGroupResponse");
  const KVMap lists = Map(R"({"roots":[7,"r",null],"issuers":[{"a":[true]}],"urls":[[]]})");
  ASSERT_TRUE(
      Config(lists.Get("roots").AsArray(), lists.Get("issuers").AsArray(), lists.Get("urls").AsArray()));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"configGroupRequest","groupId":"group 1","groupName":"its name",)"
                     R"("ownerGroupId":"owner","authnRootCertificates":[7,"r",null],)"
                     R"("authnIssuingCertificates":[{"a":[true]}],"authnCrlUrls":[[]]})"));
}

TEST_F(GroupCommands, ReencryptSendsOneCertificateAsASingleObject) {
  AttemptWithResponseOf("reencryptResponse");
  ASSERT_TRUE(client.Reencrypt("group 1", "the certificate"));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"reencryptRequest","groupId":"group 1","encryptionKey":)"
                     R"({"type":"externalCertificate","encodedCertificate":"the certificate"}})"));
}

TEST_F(GroupCommands, ReencryptSendsEmptyCertificate) {
  AttemptWithResponseOf("reencryptResponse");
  ASSERT_TRUE(client.Reencrypt("g", ""));
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"reencryptRequest","groupId":"g","encryptionKey":)"
                                              R"({"type":"externalCertificate","encodedCertificate":""}})"));
}

TEST_F(GroupCommands, ImportKeySendsKeyUnchanged) {
  AttemptWithResponseOf("importKeyResponse");
  ASSERT_TRUE(client.ImportKey("group 1", "the id", "the\nkey", "pass \"word\""));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"importKeyRequest","groupId":"group 1","id":"the id",)"
                     R"("encodedKey":"the\nkey","password":"pass \"word\""})"));
}

TEST_F(GroupCommands, ImportKeySendsEmptyPassword) {
  AttemptWithResponseOf("importKeyResponse");
  ASSERT_TRUE(client.ImportKey("g", "i", "k", ""));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"importKeyRequest","groupId":"g","id":"i","encodedKey":"k","password":""})"));
}

TEST_F(GroupCommands, DeleteKeySendsTheHandleInTokenRequestAndCommand) {
  AttemptWithResponseOf("deleteKeyResponse");
  ASSERT_TRUE(client.DeleteKey("group 1", CryptClient::GetKeyHandle("i", "s")));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"deleteKeyRequest",)"
                                     R"("key":{"type":"handle","id":"i","subId":"s"}})");
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"deleteKeyRequest","groupId":"group 1",)"
                                              R"("key":{"type":"handle","id":"i","subId":"s"}})"));
}

TEST_F(GroupCommands, DeleteKeySendsAnEmptyHandleInTheCommandOnly) {
  AttemptWithResponseOf("deleteKeyResponse");
  ASSERT_TRUE(client.DeleteKey("g", {}));
  EXPECT_EQ(http.GetRequest(1).body, R"({"keyserver":"https://one.example","operation":"deleteKeyRequest"})");
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"deleteKeyRequest","groupId":"g","key":{}})"));
}

}  // namespace
}  // namespace OruKalvix

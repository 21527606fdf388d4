#include "tests/support/client_fixture.h"
#include "tests/support/pki.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::Val;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::KeyResponse;
using TestSupport::Payload;
using TestSupport::Pki;
using TestSupport::Quoted;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;
using TestSupport::TraceRecorder;

class CreateKey : public TestSupport::ClientTest {
 protected:
  CreateKey() { UseServers({"https://one.example", "https://two.example"}); }

  static std::string RoomCert() { return Pki::Get().room.certificate.ToBase64(); }

  bool Create(const Array<Val>& certificates = Strings({"cert-a", "cert-b"})) {
    return client.CreateKey("the room", certificates, wrappedKey);
  }
  /// The next server is alive, a token is given for it, and it responds with this.
  void Attempt(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }

  AnsiStr wrappedKey = "old";
};

TEST_F(CreateKey, SendsSubjectAndCertificates) {
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Create());
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=the room-tr",)"
               R"("encryptionKeys":[{"type":"externalCertificate","encodedCertificate":"cert-a"},)"
               R"({"type":"externalCertificate","encodedCertificate":"cert-b"}]})"));
}

TEST_F(CreateKey, SendsEmptyListOfCertificates) {
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Create(Array<Val>()));
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=the room-tr",)"
               R"("encryptionKeys":[]})"));
}

TEST_F(CreateKey, SendsElementThatIsNotStringAsEmptyCertificate) {
  const TraceRecorder traces;
  Array<Val> certificates = Strings({"cert-a"});
  certificates.Append(Val(std::int64_t{7}));
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Create(certificates));
  EXPECT_NE(http.GetRequest(2).body.find(R"({"type":"externalCertificate","encodedCertificate":""}]})"),
            std::string::npos);
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

TEST_F(CreateKey, FailsWhenResponseHasNoCertificate) {
  UseServers({"https://one.example"});
  http.Then(Alive());
  for (const char* certificate : {"", R"(,"encodedX509Certificate":7)", R"(,"encodedX509Certificate":"")"}) {
    http.Then(Token("t"))
        .Then(Payload(R"({"type":"generateWrappedKeyResponse","encodedWrappedKey":"w")" +
                      std::string(certificate) + "}"));
    EXPECT_FALSE(Create()) << certificate;
    EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedX509Certificate") << certificate;
  }
}

TEST_F(CreateKey, FailsWhenCertificateCannotBeRead) {
  UseServers({"https://one.example"});
  http.Then(Alive());
  for (const std::string& certificate : {std::string("garbage"), RoomCert().substr(0, 200)}) {
    http.Then(Token("t")).Then(KeyResponse(certificate, "wrapped"));
    EXPECT_FALSE(Create()) << certificate;
    EXPECT_EQ(Error(), "Could not generate wrapped key: Could not decode encodedX509Certificate");
  }
}

TEST_F(CreateKey, FailsWhenResponseHasNoWrappedKey) {
  UseServers({"https://one.example"});
  http.Then(Alive());
  for (const char* key : {"", R"(,"encodedWrappedKey":["w"])", R"(,"encodedWrappedKey":"")"}) {
    http.Then(Token("t"))
        .Then(Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":)" +
                      Quoted(RoomCert()) + key + "}"));
    EXPECT_FALSE(Create()) << key;
    EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedWrappedKey") << key;
  }
}

TEST_F(CreateKey, AcceptsCertificateInPEM) {
  const TraceRecorder traces;
  Attempt(KeyResponse(Pki::Get().room.certificate.ToPEM(), "wrapped"));
  EXPECT_TRUE(Create());
  EXPECT_THAT(traces.GetInvalidTypes(), IsEmpty());
}

TEST_F(CreateKey, HandsOutWrappedKey) {
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Create());
  EXPECT_EQ(Str(wrappedKey), "wrapped");
}

TEST_F(CreateKey, LeavesWrappedKeyAloneWhenItFails) {
  Attempt(KeyResponse("garbage", "wrapped"));
  Attempt(ErrorCode(602));
  EXPECT_FALSE(Create());
  EXPECT_EQ(Str(wrappedKey), "old");
  EXPECT_EQ(Error(), "602 Invalid Key Type");
}

/// UpdateKey and ExportKeys, which both work through a list of keys.
class KeyLists : public TestSupport::ClientTest {
 protected:
  KeyLists() { UseServers({"https://one.example"}); }

  static Array<Val> List(const char* json) {
    return TestSupport::Map(R"({"list":)" + std::string(json) + "}").Get("list").AsArray();
  }
  bool Update(const char* keys) {
    return client.UpdateKey("the room", Strings({"cert"}), List(keys), result);
  }
  bool Export(const char* keys) { return client.ExportKeys("the room", List(keys), result); }
  static CannedResponse Modified(const char* key) {
    return Payload(R"({"type":"modifyWrappedKeyResponse","encodedWrappedKey":)" + Quoted(key) + "}");
  }
  static CannedResponse Exported(const char* key) {
    return Payload(R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":)" + Quoted(key) + "}");
  }
  void First(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }
  void Next(const CannedResponse& response) { http.Then(Token("t")).Then(response); }
  std::string Result() const { return TestSupport::JsonText(Val(result)); }

  Array<Val> result;
};

constexpr const char* kKeys = R"([{"id":"1","data":"a"},{"id":"2","data":"b"},{"id":"3","data":"c"}])";

TEST_F(KeyLists, AreWrappedAgainKeyByKey) {
  First(Modified("A"));
  Next(Modified("B"));
  Next(Modified("C"));
  ASSERT_TRUE(Update(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","data":"A"},{"id":"2","data":"B"},{"id":"3","data":"C"}])");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"modifyWrappedKeyRequest","encodedWrappedKey":"a","encryptionKeys":)"
                     R"([{"type":"externalCertificate","encodedCertificate":"cert"}]})"));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"modifyWrappedKeyRequest"})");
}

TEST_F(KeyLists, AreExportedKeyByKey) {
  First(Exported("A"));
  Next(Exported("B"));
  Next(Exported("C"));
  ASSERT_TRUE(Export(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","plain":"A"},{"id":"2","plain":"B"},{"id":"3","plain":"C"}])");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"exportWrappedKeyRequest","encodedWrappedKey":"a"})"));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"exportWrappedKeyRequest"})");
}

TEST_F(KeyLists, NeedTokenForEachKey) {
  First(Exported("A"));
  Next(Exported("B"));
  ASSERT_TRUE(Export(R"([{"id":"1","data":"a"},{"id":"2","data":"b"}])"));
  const std::string token = "POST https://crypt.example/api/crypt/authztoken/the%20room";
  EXPECT_THAT(http.GetLines(),
              ElementsAre("GET https://one.example/status", token, "POST https://one.example/rest/json",
                          token, "POST https://one.example/rest/json"));
}

TEST_F(KeyLists, NeedNoServerWhenEmpty) {
  result = Strings({"kept"});
  client.SetKeyServer({});
  EXPECT_TRUE(Update("[]"));
  EXPECT_TRUE(Export("[]"));
  EXPECT_EQ(Result(), R"(["kept"])");
  EXPECT_EQ(Error(), "");
}

TEST_F(KeyLists, AreAppendedToResult) {
  result = Strings({"kept"});
  First(Exported("A"));
  ASSERT_TRUE(Export(R"([{"id":"1","data":"a"}])"));
  Next(Modified("B"));
  ASSERT_TRUE(Update(R"([{"id":"2","data":"b"}])"));
  EXPECT_EQ(Result(), R"(["kept",{"id":"1","plain":"A"},{"id":"2","data":"B"}])");
}

TEST_F(KeyLists, MayBeInSameArrayAsResults) {
  OruGuiBase::Array<Val> both = List(R"([{"id":"1","data":"a"},{"id":"2","data":"b"}])");
  First(Exported("A"));
  Next(Exported("B"));
  ASSERT_TRUE(client.ExportKeys("the room", both, both));
  EXPECT_EQ(TestSupport::JsonText(Val(both)), R"([{"id":"1","data":"a"},{"id":"2","data":"b"},)"
                                              R"({"id":"1","plain":"A"},{"id":"2","plain":"B"}])");
}

TEST_F(KeyLists, KeepResultsBeforeKeyThatFailsOnAllServers) {
  UseServers({"https://one.example", "https://two.example"});
  First(Modified("A"));
  Next(ErrorCode(605));
  First(ErrorCode(606));
  EXPECT_FALSE(Update(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","data":"A"}])");
  EXPECT_EQ(Error(), "606 Keystore Unavailable");
}

TEST_F(KeyLists, StopAtFirstKeyThatIsNotWrapped) {
  First(Modified("A"));
  Next(ErrorCode(605));
  EXPECT_FALSE(Update(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","data":"A"}])");
  EXPECT_EQ(Error(), "605 Invalid Wrapped Key");
}

TEST_F(KeyLists, StopAtFirstKeyThatIsNotExported) {
  First(Exported("A"));
  Next(ErrorCode(609));
  EXPECT_FALSE(Export(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","plain":"A"}])");
  EXPECT_EQ(Error(), "609 Auth Failed");
}

TEST_F(KeyLists, FailWhenResponseHasNoWrappedKey) {
  http.Then(Alive());
  for (const char* response : {R"({"type":"modifyWrappedKeyResponse"})",
                               R"({"type":"modifyWrappedKeyResponse","encodedWrappedKey":""})",
                               R"({"type":"modifyWrappedKeyResponse","encodedWrappedKey":7})"}) {
    Next(Payload(response));
    EXPECT_FALSE(Update(R"([{"id":"1","data":"a"}])")) << response;
    EXPECT_EQ(Error(), "Could not modify wrapped key: Invalid encodedWrappedKey");
    EXPECT_TRUE(result.IsEmpty());
  }
}

TEST_F(KeyLists, FailWhenResponseHasNoPrivateKey) {
  http.Then(Alive());
  for (const char* response : {R"({"type":"exportWrappedKeyResponse"})",
                               R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":""})",
                               R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":["x"]})"}) {
    Next(Payload(response));
    EXPECT_FALSE(Export(R"([{"id":"1","data":"a"}])")) << response;
    EXPECT_EQ(Error(), "Could not decrypt room key: Invalid encodedPrivateKey");
    EXPECT_TRUE(result.IsEmpty());
  }
}

// The key server decides about it.
TEST_F(KeyLists, SendEntryThatIsNotObjectAsEmptyKey) {
  const TraceRecorder traces;
  First(ErrorCode(605));
  EXPECT_FALSE(Export(R"(["no object"])"));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"exportWrappedKeyRequest","encodedWrappedKey":""})"));
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(7U, 5U, 5U));
}

TEST_F(KeyLists, HandBackEmptyIdForEntryWithoutId) {
  const TraceRecorder traces;
  First(Modified("A"));
  ASSERT_TRUE(Update(R"([{"id":1,"data":true}])"));
  EXPECT_EQ(Result(), R"([{"id":"","data":"A"}])");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U));
}

TEST_F(KeyLists, AreWrappedForEmptyListOfCertificates) {
  First(Modified("A"));
  ASSERT_TRUE(client.UpdateKey("the room", {}, List(R"([{"id":"1","data":"a"}])"), result));
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"modifyWrappedKeyRequest","encodedWrappedKey":"a",)"
                                              R"("encryptionKeys":[]})"));
}

}  // namespace
}  // namespace OruKalvix

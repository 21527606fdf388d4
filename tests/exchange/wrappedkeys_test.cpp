#include "tests/support/clienttest.h"
#include "tests/support/pki.h"
#include "tests/support/tracerecorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::Array;
using OruGuiBase::Val;
using OruOssSec::Certificate;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Alive;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::HttpAnswer;
using TestSupport::LoadCert;
using TestSupport::LoadKey;
using TestSupport::Payload;
using TestSupport::Pki;
using TestSupport::Quoted;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;
using TestSupport::TraceRecorder;

class GeneratedKeys : public TestSupport::ClientTest {
 protected:
  GeneratedKeys() { UseServers({"https://one.example", "https://two.example"}); }

  /// A key server's answer; a part that is not given is left out.
  static HttpAnswer Answer(const std::string& certificate, const std::string& wrappedKey) {
    std::string payload = R"({"type":"generateWrappedKeyResponse")";
    if (!certificate.empty()) payload += R"(,"encodedX509Certificate":)" + Quoted(certificate);
    if (!wrappedKey.empty()) payload += R"(,"encodedWrappedKey":)" + Quoted(wrappedKey);
    return Payload(payload + "}");
  }
  static std::string RoomCert() { return Pki::Get().room.certificate.ToBase64(); }

  bool Generate(const Array<Val>& certificates = Strings({"cert-a", "cert-b"})) {
    return peer.KeyServerGenerateWrappedKey("the room", certificates, roomKey);
  }
  /// The next attempt meets this answer.
  void Attempt(const HttpAnswer& answer) { http.Then(Alive()).Then(Token("t")).Then(answer); }

  RoomKey roomKey;
};

TEST_F(GeneratedKeys, FillRoomDataAndCertificate) {
  roomKey.key = LoadKey(Pki::Get().room.key);
  Attempt(Answer(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(Str(roomKey.room), "the room");
  EXPECT_EQ(Str(roomKey.data), "wrapped");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_TRUE(roomKey.key.IsEmpty());
}

TEST_F(GeneratedKeys, AreAskedForWithSubjectAndCertificates) {
  Attempt(Answer(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=the room-tr",)"
               R"("encryptionKeys":[{"type":"externalCertificate","encodedCertificate":"cert-a"},)"
               R"({"type":"externalCertificate","encodedCertificate":"cert-b"}]})"));
}

TEST_F(GeneratedKeys, NeedATokenForTheRoomThatIsGiven) {
  Attempt(Answer(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(http.GetRequest(1).url, "https://crypt.example/api/crypt/authztoken/the%20room");
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"generateWrappedKeyRequest"})");
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t");
}

TEST_F(GeneratedKeys, AreAskedForWithAnEmptyListToo) {
  Attempt(Answer(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate(Array<Val>()));
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=the room-tr",)"
               R"("encryptionKeys":[]})"));
}

TEST_F(GeneratedKeys, SendAnElementThatIsNoTextAsAnEmptyCertificate) {
  const TraceRecorder traces;
  Array<Val> certificates = Strings({"cert-a"});
  certificates.Append(Val(std::int64_t{7}));
  Attempt(Answer(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate(certificates));
  EXPECT_NE(http.GetRequest(2).body.find(R"({"type":"externalCertificate","encodedCertificate":""}]})"),
            std::string::npos);
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

TEST_F(GeneratedKeys, NeedACertificateInTheAnswer) {
  Attempt(Answer("", "wrapped"));
  Attempt(
      Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":7,"encodedWrappedKey":"w"})"));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedX509Certificate");
}

TEST_F(GeneratedKeys, NeedACertificateThatCanBeRead) {
  Attempt(Answer("garbage", "wrapped"));
  Attempt(Answer(RoomCert().substr(0, 200), "wrapped"));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Error(), "Could not generate wrapped key: Could not decode encodedX509Certificate");
}

TEST_F(GeneratedKeys, NeedAWrappedKeyInTheAnswer) {
  Attempt(Answer(RoomCert(), ""));
  Attempt(
      Payload(R"({"type":"generateWrappedKeyResponse","encodedWrappedKey":["w"],"encodedX509Certificate":)" +
              Quoted(RoomCert()) + "}"));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedWrappedKey");
}

TEST_F(GeneratedKeys, HoldTheSecondServersDataOnlyWhenTheFirstGaveHalf) {
  Attempt(Answer(Pki::Get().integrity.certificate.ToBase64(), ""));
  Attempt(Answer(RoomCert(), "second"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(Str(roomKey.data), "second");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedWrappedKey");
}

TEST_F(GeneratedKeys, AreResetByEachGoodPost) {
  roomKey.data = "old";
  roomKey.certificate = LoadCert(Pki::Get().integrity.certificate);
  Attempt(Answer("garbage", "first"));
  Attempt(ErrorCode(615));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Str(roomKey.room), "the room");
  EXPECT_EQ(Str(roomKey.data), "");
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_EQ(Error(), "615 Key Generation Error");
}

TEST_F(GeneratedKeys, AreLeftAloneWhileNoPostSucceeds) {
  roomKey.data = "old";
  Attempt(Status(500));
  Attempt(ErrorCode(606));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Str(roomKey.data), "old");
  EXPECT_EQ(Error(), "606 Keystore Unavailable");
}

TEST_F(GeneratedKeys, NeedAKeyServer) {
  client.SetKeyServer({});
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Error(), "Invalid key server URL");
}

TEST_F(GeneratedKeys, AreNotAskedForAnywhereElseWithoutAToken) {
  http.Then(Alive()).Then(Status(401));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 401");
  EXPECT_EQ(http.GetRequestCount(), 2U);
}

TEST_F(GeneratedKeys, TakeACertificateInPEM) {
  const TraceRecorder traces;
  Attempt(Answer(Pki::Get().room.certificate.ToPEM(), "wrapped"));
  EXPECT_TRUE(Generate());
  EXPECT_THAT(traces.GetInvalidTypes(), IsEmpty());
}

}  // namespace
}  // namespace OruKalvix

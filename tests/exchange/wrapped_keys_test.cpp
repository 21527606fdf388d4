#include "tests/support/client_internals_fixture.h"
#include "tests/support/pki.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::Val;
using OruOssSec::Certificate;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
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

class GeneratedKeys : public TestSupport::ClientInternalsTest {
 protected:
  GeneratedKeys() { UseServers({"https://one.example", "https://two.example"}); }

  /// A key server's response; a part that is not given is left out.
  static CannedResponse KeyResponse(const std::string& certificate, const std::string& wrappedKey) {
    std::string payload = R"({"type":"generateWrappedKeyResponse")";
    if (!certificate.empty()) payload += R"(,"encodedX509Certificate":)" + Quoted(certificate);
    if (!wrappedKey.empty()) payload += R"(,"encodedWrappedKey":)" + Quoted(wrappedKey);
    return Payload(payload + "}");
  }
  static std::string RoomCert() { return Pki::Get().room.certificate.ToBase64(); }

  bool Generate(const Array<Val>& certificates = Strings({"cert-a", "cert-b"})) {
    return peer.KeyServerGenerateWrappedKey("the room", certificates, roomKey);
  }
  /// The next attempt meets this response.
  void Attempt(const CannedResponse& response) { http.Then(Alive()).Then(Token("t")).Then(response); }

  RoomKey roomKey;
};

// A generated key fills room, data and certificate and leaves the private key empty.
TEST_F(GeneratedKeys, FillRoomDataAndCertificate) {
  roomKey.key = LoadKey(Pki::Get().room.key);
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(Str(roomKey.room), "the room");
  EXPECT_EQ(Str(roomKey.data), "wrapped");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_TRUE(roomKey.key.IsEmpty());
}

// A key is asked for with the subject "CN=", the room, "-tr" and one entry for each certificate.
TEST_F(GeneratedKeys, AreAskedForWithSubjectAndCertificates) {
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=the room-tr",)"
               R"("encryptionKeys":[{"type":"externalCertificate","encodedCertificate":"cert-a"},)"
               R"({"type":"externalCertificate","encodedCertificate":"cert-b"}]})"));
}

// A key is asked for with an empty list of certificates too.
TEST_F(GeneratedKeys, AreAskedForWithAnEmptyListToo) {
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate(Array<Val>()));
  EXPECT_EQ(
      http.GetRequest(2).body,
      Envelope(R"({"type":"generateWrappedKeyRequest","keyType":"","certificateSubject":"CN=the room-tr",)"
               R"("encryptionKeys":[]})"));
}

// A certificate that is no text is reported and sent empty.
TEST_F(GeneratedKeys, SendAnElementThatIsNoTextAsAnEmptyCertificate) {
  const TraceRecorder traces;
  Array<Val> certificates = Strings({"cert-a"});
  certificates.Append(Val(std::int64_t{7}));
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(Generate(certificates));
  EXPECT_NE(http.GetRequest(2).body.find(R"({"type":"externalCertificate","encodedCertificate":""}]})"),
            std::string::npos);
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

// A certificate that is missing, empty or no text sends the command to the next server.
TEST_F(GeneratedKeys, NeedACertificateInTheResponse) {
  for (const char* certificate : {"", R"(,"encodedX509Certificate":7)", R"(,"encodedX509Certificate":"")"}) {
    UseServers({"https://one.example"});
    peer.serverTimes = {};
    peer.SetError("");
    Attempt(Payload(R"({"type":"generateWrappedKeyResponse","encodedWrappedKey":"w")" +
                    std::string(certificate) + "}"));
    EXPECT_FALSE(Generate()) << certificate;
    EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedX509Certificate") << certificate;
  }
}

// A certificate that cannot be read sends the command to the next server.
TEST_F(GeneratedKeys, NeedACertificateThatCanBeRead) {
  for (const std::string& certificate : {std::string("garbage"), RoomCert().substr(0, 200)}) {
    UseServers({"https://one.example"});
    peer.serverTimes = {};
    peer.SetError("");
    Attempt(KeyResponse(certificate, "wrapped"));
    EXPECT_FALSE(Generate()) << certificate;
    EXPECT_EQ(Error(), "Could not generate wrapped key: Could not decode encodedX509Certificate");
  }
}

// A wrapped key that is missing, empty or no text sends the command to the next server.
TEST_F(GeneratedKeys, NeedAWrappedKeyInTheResponse) {
  for (const char* key : {"", R"(,"encodedWrappedKey":["w"])", R"(,"encodedWrappedKey":"")"}) {
    UseServers({"https://one.example"});
    peer.serverTimes = {};
    peer.SetError("");
    Attempt(Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":)" + Quoted(RoomCert()) +
                    key + "}"));
    EXPECT_FALSE(Generate()) << key;
    EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedWrappedKey") << key;
  }
}

// Half a response of a first server leaves nothing in the key of the second.
TEST_F(GeneratedKeys, HoldTheSecondServersDataOnlyWhenTheFirstGaveHalf) {
  Attempt(KeyResponse(Pki::Get().integrity.certificate.ToBase64(), ""));
  Attempt(KeyResponse(RoomCert(), "second"));
  ASSERT_TRUE(Generate());
  EXPECT_EQ(Str(roomKey.data), "second");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_EQ(Error(), "Could not generate wrapped key: Invalid encodedWrappedKey");
}

// Each response of the right type resets the key before it is read.
TEST_F(GeneratedKeys, AreResetByEachGoodPost) {
  roomKey.data = "old";
  roomKey.certificate = LoadCert(Pki::Get().integrity.certificate);
  Attempt(KeyResponse("garbage", "first"));
  Attempt(ErrorCode(615));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Str(roomKey.room), "the room");
  EXPECT_EQ(Str(roomKey.data), "");
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_EQ(Error(), "615 Key Generation Error");
}

// Servers that refuse leave the key as it was.
TEST_F(GeneratedKeys, AreLeftAloneWhileNoPostSucceeds) {
  roomKey.data = "old";
  Attempt(Status(500));
  Attempt(ErrorCode(606));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(Str(roomKey.data), "old");
  EXPECT_EQ(Error(), "606 Keystore Unavailable");
}

// The certificate of a generated key may come in PEM.
TEST_F(GeneratedKeys, TakeACertificateInPEM) {
  const TraceRecorder traces;
  Attempt(KeyResponse(Pki::Get().room.certificate.ToPEM(), "wrapped"));
  EXPECT_TRUE(Generate());
  EXPECT_THAT(traces.GetInvalidTypes(), IsEmpty());
}

// CreateKey hands the wrapped key out and nothing else.
TEST_F(GeneratedKeys, AreHandedOutAsTheWrappedKeyAlone) {
  AnsiStr wrappedKey = "old";
  Attempt(KeyResponse(RoomCert(), "wrapped"));
  ASSERT_TRUE(client.CreateKey("the room", {}, wrappedKey));
  EXPECT_EQ(Str(wrappedKey), "wrapped");
}

// A failed CreateKey leaves the caller's text alone.
TEST_F(GeneratedKeys, LeaveTheCallersKeyAloneWhenNoneCanBeMade) {
  AnsiStr wrappedKey = "old";
  Attempt(KeyResponse("garbage", "wrapped"));
  Attempt(ErrorCode(602));
  EXPECT_FALSE(client.CreateKey("the room", {}, wrappedKey));
  EXPECT_EQ(Str(wrappedKey), "old");
  EXPECT_EQ(Error(), "602 Invalid Key Type");
}

/// What UpdateKey and ExportKeys have in common.
class KeyLists : public TestSupport::ClientInternalsTest {
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

// UpdateKey has each key rewrapped for the certificates and gives its id and new data.
TEST_F(KeyLists, AreRewrappedKeyByKey) {
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

// ExportKeys has each private key taken out and gives its id and plain text.
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

// Each key of a list costs a token of its own.
TEST_F(KeyLists, CostATokenForTheRoomOfEachKey) {
  First(Exported("A"));
  Next(Exported("B"));
  ASSERT_TRUE(Export(R"([{"id":"1","data":"a"},{"id":"2","data":"b"}])"));
  const std::string token = "POST https://crypt.example/api/crypt/authztoken/the%20room";
  EXPECT_THAT(http.GetLines(),
              ElementsAre("GET https://one.example/status", token, "POST https://one.example/rest/json",
                          token, "POST https://one.example/rest/json"));
}

// An empty list succeeds without any exchange and leaves the result alone.
TEST_F(KeyLists, NeedNoServerWhenTheyAreEmpty) {
  result = Strings({"kept"});
  client.SetKeyServer({});
  EXPECT_TRUE(Update("[]"));
  EXPECT_TRUE(Export("[]"));
  EXPECT_EQ(Result(), R"(["kept"])");
  EXPECT_EQ(Error(), "");
}

// Results are appended to what the caller's array holds.
TEST_F(KeyLists, AreAppendedToWhatTheResultHolds) {
  result = Strings({"kept"});
  First(Exported("A"));
  ASSERT_TRUE(Export(R"([{"id":"1","data":"a"}])"));
  Next(Modified("B"));
  ASSERT_TRUE(Update(R"([{"id":"2","data":"b"}])"));
  EXPECT_EQ(Result(), R"(["kept",{"id":"1","plain":"A"},{"id":"2","data":"B"}])");
}

// The keys may come from the very array that the results are appended to.
TEST_F(KeyLists, MayLieInTheArrayThatTakesTheResults) {
  OruGuiBase::Array<Val> both = List(R"([{"id":"1","data":"a"},{"id":"2","data":"b"}])");
  First(Exported("A"));
  Next(Exported("B"));
  ASSERT_TRUE(client.ExportKeys("the room", both, both));
  EXPECT_EQ(TestSupport::JsonText(Val(both)), R"([{"id":"1","data":"a"},{"id":"2","data":"b"},)"
                                              R"({"id":"1","plain":"A"},{"id":"2","plain":"B"}])");
}

// Three keys of which the second fails on all servers leave exactly one new entry.
TEST_F(KeyLists, KeepWhatWasDoneBeforeAKeyThatFailsOnAllServers) {
  UseServers({"https://one.example", "https://two.example"});
  First(Modified("A"));
  Next(ErrorCode(605));
  First(ErrorCode(606));
  EXPECT_FALSE(Update(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","data":"A"}])");
  EXPECT_EQ(Error(), "606 Keystore Unavailable");
}

// UpdateKey stops at the first key that fails and leaves what was done before.
TEST_F(KeyLists, StopAtTheFirstKeyThatIsNotRewrapped) {
  First(Modified("A"));
  Next(ErrorCode(605));
  EXPECT_FALSE(Update(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","data":"A"}])");
  EXPECT_EQ(Error(), "605 Invalid Wrapped Key");
}

// ExportKeys stops at the first key that fails and leaves what was done before.
TEST_F(KeyLists, StopAtTheFirstKeyThatIsNotExported) {
  First(Exported("A"));
  Next(ErrorCode(609));
  EXPECT_FALSE(Export(kKeys));
  EXPECT_EQ(Result(), R"([{"id":"1","plain":"A"}])");
  EXPECT_EQ(Error(), "609 Auth Failed");
}

// A rewrapped key that is missing, empty or no text sends the command to the next server.
TEST_F(KeyLists, NeedAWrappedKeyInEachResponse) {
  for (const char* response : {R"({"type":"modifyWrappedKeyResponse"})",
                               R"({"type":"modifyWrappedKeyResponse","encodedWrappedKey":""})",
                               R"({"type":"modifyWrappedKeyResponse","encodedWrappedKey":7})"}) {
    http.Then(Alive()).Then(Token("t")).Then(Payload(response));
    peer.serverTimes = {};
    EXPECT_FALSE(Update(R"([{"id":"1","data":"a"}])")) << response;
    EXPECT_EQ(Error(), "Could not modify wrapped key: Invalid encodedWrappedKey");
    EXPECT_TRUE(result.IsEmpty());
  }
}

// A private key that is missing, empty or no text sends the command to the next server.
TEST_F(KeyLists, NeedAPrivateKeyInEachResponse) {
  for (const char* response : {R"({"type":"exportWrappedKeyResponse"})",
                               R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":""})",
                               R"({"type":"exportWrappedKeyResponse","encodedPrivateKey":["x"]})"}) {
    http.Then(Alive()).Then(Token("t")).Then(Payload(response));
    peer.serverTimes = {};
    EXPECT_FALSE(Export(R"([{"id":"1","data":"a"}])")) << response;
    EXPECT_EQ(Error(), "Could not decrypt room key: Invalid encodedPrivateKey");
    EXPECT_TRUE(result.IsEmpty());
  }
}

// An entry that is no object is reported and sent as an empty key; the server decides.
TEST_F(KeyLists, SendAnEntryThatIsNoObjectAsAnEmptyKey) {
  const TraceRecorder traces;
  First(ErrorCode(605));
  EXPECT_FALSE(Export(R"(["no object"])"));
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"exportWrappedKeyRequest","encodedWrappedKey":""})"));
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(7U, 5U, 5U));
}

// An entry whose id is no text comes back with an empty id.
TEST_F(KeyLists, GiveAnEntryWithoutIdAndDataBackWithAnEmptyId) {
  const TraceRecorder traces;
  First(Modified("A"));
  ASSERT_TRUE(Update(R"([{"id":1,"data":true}])"));
  EXPECT_EQ(Result(), R"([{"id":"","data":"A"}])");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U));
}

// Keys are rewrapped for an empty list of certificates too.
TEST_F(KeyLists, AreRewrappedForNoCertificatesToo) {
  First(Modified("A"));
  ASSERT_TRUE(client.UpdateKey("the room", {}, List(R"([{"id":"1","data":"a"}])"), result));
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"modifyWrappedKeyRequest","encodedWrappedKey":"a",)"
                                              R"("encryptionKeys":[]})"));
}

// The client's own fields keep nothing of an exported key.
TEST_F(KeyLists, LeaveNoPlainKeyInTheClient) {
  First(Exported("the plain key"));
  ASSERT_TRUE(Export(R"([{"id":"1","data":"a"}])"));
  EXPECT_EQ(Str(peer.errorMessage) + Str(peer.authzToken) + Str(peer.transaction) + Str(peer.group), "");
  EXPECT_EQ(TestSupport::JsonText(peer.responseHeaders), "{}");
  EXPECT_TRUE(peer.integrityKey.id.IsEmpty() && peer.integrityKey.subId.IsEmpty());
}

}  // namespace
}  // namespace OruKalvix

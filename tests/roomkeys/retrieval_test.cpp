#include "tests/support/client_internals_fixture.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::KVMap;
using OruOssSec::Certificate;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using TestSupport::CannedResponse;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::LoadCert;
using TestSupport::LoadKey;
using TestSupport::NoExchange;
using TestSupport::Pki;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedServices;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;
using TestSupport::With;

constexpr const char* kKeyError = "QOB.1.1001.1.422645";

class Retrieval : public TestSupport::ClientInternalsTest {
 protected:
  Retrieval() {
    roomKey.room = "old room";
    roomKey.data = "old data";
    roomKey.certificate = LoadCert(Pki::Get().integrity.certificate);
    roomKey.key = LoadKey(Pki::Get().integrity.key);
    UseServers({"https://old.example"});
    peer.group = "old group";
    peer.statusTimeout = 77;
    peer.certAuth = true;
  }

  bool Fetch(const CannedResponse& response, const char* issuer = "", const char* serial = "") {
    http.Then(response);
    return peer.FetchRoomKey(roomKey, keyErrorFlag, issuer, serial);
  }
  /// Nothing but the message has changed.
  void ExpectUnchanged() {
    EXPECT_EQ(Str(roomKey.room), "old room");
    EXPECT_EQ(Str(roomKey.data), "old data");
    EXPECT_FALSE(roomKey.certificate.IsEmpty());
    EXPECT_FALSE(roomKey.key.IsEmpty());
    EXPECT_EQ(Str(peer.group), "old group");
    EXPECT_EQ(peer.keyServerCursor.servers.GetCount(), 1U);
    EXPECT_EQ(peer.statusTimeout, 77U);
    EXPECT_TRUE(peer.certAuth);
  }

  RoomKey roomKey;
  bool keyErrorFlag = false;
};

TEST_F(Retrieval, GetsCurrentKey) {
  ASSERT_TRUE(Fetch(Json(ScriptedServices::RoomKeyResponse())));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.url, "https://crypt.example/api/crypt/key/room%201");
  EXPECT_EQ(request.body, "");
  EXPECT_THAT(request.headers, IsEmpty());
}

TEST_F(Retrieval, PostsForKeyOfCertificate) {
  ASSERT_TRUE(Fetch(Json(ScriptedServices::RoomKeyResponse()), "CN=Issuer", "0A3F"));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://crypt.example/api/crypt/key/room%201");
  EXPECT_EQ(request.body, R"({"id":{"issuer":"CN=Issuer","serial":"0A3F"}})");
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(request.headers.size(), 1U);
}

TEST_F(Retrieval, PostsWithIssuerAlone) {
  ASSERT_TRUE(Fetch(Json("{}"), "CN=Issuer", ""));
  EXPECT_EQ(http.GetRequest(0).method, "POST");
  EXPECT_EQ(http.GetRequest(0).body, R"({"id":{"issuer":"CN=Issuer","serial":""}})");
}

TEST_F(Retrieval, PostsWithSerialNumberAlone) {
  ASSERT_TRUE(Fetch(Json("{}"), "", "0A3F"));
  EXPECT_EQ(http.GetRequest(0).method, "POST");
  EXPECT_EQ(http.GetRequest(0).body, R"({"id":{"issuer":"","serial":"0A3F"}})");
}

TEST_F(Retrieval, FillsTheRoomKey) {
  const KVMap response =
      With(ScriptedServices::RoomKeyResponse(), "plain", Quoted(Pki::Get().room.key.ToPEM()));
  ASSERT_TRUE(Fetch(Json(response)));
  EXPECT_EQ(Str(roomKey.room), "room 1");
  EXPECT_EQ(Str(roomKey.data), Str(response.Get("data").AsString()));
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().room.certificate)), 0);
  EXPECT_FALSE(roomKey.key.IsEmpty());
  EXPECT_FALSE(keyErrorFlag);
  EXPECT_EQ(Error(), "");
}

TEST_F(Retrieval, TakesTheConfigurationFromTheResponse) {
  KVMap response = With(ScriptedServices::RoomKeyResponse(), "certauth", "true");
  response = With(response, "keyserver", R"(["https://a","https://b"])");
  TestSupport::BeginRotationAt(9);
  peer.certAuth = false;
  ASSERT_TRUE(Fetch(Json(response)));
  EXPECT_EQ(Str(peer.group), TestSupport::kGroup);
  EXPECT_EQ(JsonText(OruGuiBase::Val(peer.keyServerCursor.servers)), R"(["https://a","https://b"])");
  EXPECT_EQ(peer.keyServerCursor.startIndex, 9U);
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "");
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_TRUE(client.GetCertAuth());
}

TEST_F(Retrieval, ClearsFieldsThatResponseLeavesOut) {
  const TraceRecorder traces;
  ASSERT_TRUE(Fetch(Json("{}")));
  EXPECT_EQ(Str(roomKey.room) + Str(roomKey.data), "");
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_TRUE(roomKey.key.IsEmpty());
  EXPECT_EQ(Str(peer.group), "");
  EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
  EXPECT_EQ(peer.statusTimeout, 0U);
  EXPECT_FALSE(peer.certAuth);
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U, 5U, 5U, 5U, 5U, 5U, 8U, 5U, 1U));
}

TEST_F(Retrieval, ClearsFieldsThatHaveAnotherType) {
  const TraceRecorder traces;
  ASSERT_TRUE(
      Fetch(Json(R"({"errorid":1,"errortext":1,"room":1,"certificate":1,"data":1,"plain":1,"group":1,)"
                 R"("keyserver":"https://a","statustimeout":5,"certauth":1})")));
  EXPECT_EQ(Str(roomKey.room) + Str(roomKey.data) + Str(peer.group), "");
  EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
  EXPECT_EQ(peer.statusTimeout, 0U);
  EXPECT_FALSE(peer.certAuth);
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U, 5U, 5U, 5U, 5U, 5U, 8U, 5U, 1U));
}

TEST_F(Retrieval, ReadsEmptyResponseToPostAsRoomWithoutKey) {
  ASSERT_TRUE(Fetch(Json(""), "CN=Issuer", "01"));
  EXPECT_EQ(Str(roomKey.room) + Str(roomKey.data), "");
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_TRUE(roomKey.key.IsEmpty());
  EXPECT_EQ(Str(peer.group), "");
  EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
  EXPECT_FALSE(keyErrorFlag);
  EXPECT_EQ(Error(), "");
}

TEST_F(Retrieval, ReadsResponseThatIsNotObjectAsEmpty) {
  const TraceRecorder traces;
  ASSERT_TRUE(Fetch(Json("[1]")));
  EXPECT_EQ(Str(roomKey.room) + Str(roomKey.data) + Str(peer.group), "");
  EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(7U, 5U, 5U, 5U, 5U, 5U, 5U, 5U, 8U, 5U, 1U));
}

TEST_F(Retrieval, RefusesAnEmptyResponseToAGet) {
  EXPECT_FALSE(Fetch(Json("")));
  EXPECT_THAT(Error(), StartsWith("Could not get room key: Could not parse response: "));
  ExpectUnchanged();
}

TEST_F(Retrieval, NeedsAServiceUrl) {
  CryptClient other(&http, "", "", kRoom);
  EXPECT_FALSE(CryptClientTestPeer(other).FetchRoomKey(roomKey, keyErrorFlag, "", ""));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  EXPECT_EQ(http.GetRequestCount(), 0U);
  ExpectUnchanged();
}

TEST_F(Retrieval, ReportsWhyExchangeFailed) {
  EXPECT_FALSE(Fetch(NoExchange("no route")));
  EXPECT_EQ(Error(), "Could not get room key: no route");
  EXPECT_FALSE(Fetch(Status(403)));
  EXPECT_EQ(Error(), "Could not get room key: HTTP 403");
  EXPECT_FALSE(Fetch(Status(500), "CN=Issuer", "01"));
  EXPECT_EQ(Error(), "Could not get room key: HTTP 500");
  EXPECT_FALSE(Fetch(Json("{"), "CN=Issuer", "01"));
  EXPECT_THAT(Error(), StartsWith("Could not get room key: Could not parse response: "));
  EXPECT_FALSE(keyErrorFlag);
  ExpectUnchanged();
}

TEST_F(Retrieval, SetsFlagForDistinguishedError) {
  EXPECT_FALSE(
      Fetch(Json(std::string(R"({"errorid":")") + kKeyError + R"(","errortext":"Ask for access"})")));
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_EQ(Error(), "Ask for access");
  ExpectUnchanged();
}

TEST_F(Retrieval, KeepsPercentSignsOfDistinguishedError) {
  EXPECT_FALSE(
      Fetch(Json(std::string(R"({"errorid":")") + kKeyError + R"(","errortext":"Ask %s for %n access"})")));
  EXPECT_EQ(Error(), "Ask %s for %n access");
}

TEST_F(Retrieval, SetsFlagForKeyOfCertificate) {
  EXPECT_FALSE(
      Fetch(Json(std::string(R"({"errorid":")") + kKeyError + R"(","errortext":"t"})"), "CN=Issuer", "01"));
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_EQ(Error(), "t");
}

TEST_F(Retrieval, RecordsTextOfDistinguishedErrorAlone) {
  peer.SetError("before");
  EXPECT_FALSE(Fetch(Json(std::string(R"({"errorid":")") + kKeyError + R"("})")));
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_EQ(Error(), "");
}

TEST_F(Retrieval, RecordsEachOtherErrorWithItsTextAlone) {
  const struct {
    const char* response;
    const char* message;
    const char* reason;
  } rows[] = {
      {R"({"errorid":"QOB.2","errortext":"no access"})", "Could not get room key: no access", "id and text"},
      {R"({"errorid":"QOB.2"})", "Could not get room key: ", "an id without text"},
      {R"({"errorid":"QOB.1.1001.1.422645 ","errortext":"t"})", "Could not get room key: t",
       "a blank at the end"},
      {R"({"errorid":"x","errortext":"100%s"})", "Could not get room key: 100%s", "a per-cent sign"},
  };
  for (const auto& row : rows) {
    EXPECT_FALSE(Fetch(Json(row.response))) << row.reason;
    EXPECT_EQ(Error(), row.message) << row.reason;
    EXPECT_FALSE(keyErrorFlag) << row.reason;
  }
  ExpectUnchanged();
}

TEST_F(Retrieval, TreatsDistinguishedErrorInAnotherCaseAsOtherError) {
  EXPECT_FALSE(Fetch(Json(R"({"errorid":"qob.1.1001.1.422645","errortext":"t"})")));
  EXPECT_FALSE(keyErrorFlag);
  EXPECT_EQ(Error(), "Could not get room key: t");
}

TEST_F(Retrieval, TreatsErrorTextWithoutIdAsError) {
  EXPECT_FALSE(Fetch(Json(R"({"errorid":"","errortext":"no access"})")));
  EXPECT_EQ(Error(), "Could not get room key: no access");
  EXPECT_FALSE(Fetch(Json(R"({"errortext":"no access at all"})")));
  EXPECT_EQ(Error(), "Could not get room key: no access at all");
}

TEST_F(Retrieval, ReadsNothingButTheErrorFromARefusal) {
  const TraceRecorder traces;
  EXPECT_FALSE(Fetch(Json(With(ScriptedServices::RoomKeyResponse(), "errorid", R"("QOB.2")"))));
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));  // The missing "errortext".
  ExpectUnchanged();
}

TEST_F(Retrieval, LeavesTheCallersRoomKeyWhenItFails) {
  EXPECT_FALSE(Fetch(Status(500)));
  EXPECT_EQ(Str(roomKey.room), "old room");
  EXPECT_EQ(Str(roomKey.data), "old data");
  EXPECT_EQ(Certificate::Compare(roomKey.certificate, LoadCert(Pki::Get().integrity.certificate)), 0);
  EXPECT_FALSE(roomKey.key.IsEmpty());
}

TEST_F(Retrieval, NeverClearsFlag) {
  keyErrorFlag = true;
  EXPECT_TRUE(Fetch(Json("{}")));
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_FALSE(Fetch(Json(R"({"errorid":"other"})")));
  EXPECT_TRUE(keyErrorFlag);
}

TEST_F(Retrieval, LeavesCertificateEmptyWhenItCannotBeRead) {
  const KVMap response = With(ScriptedServices::RoomKeyResponse(), "certificate", R"("garbage")");
  ASSERT_TRUE(Fetch(Json(response)));
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_EQ(Str(roomKey.room), "room 1");
  EXPECT_NE(Str(roomKey.data), "");
  EXPECT_EQ(Error(), "");
}

TEST_F(Retrieval, LeavesKeyEmptyWhenItCannotBeRead) {
  const KVMap response = With(ScriptedServices::RoomKeyResponse(), "plain", R"("garbage")");
  ASSERT_TRUE(Fetch(Json(response)));
  EXPECT_TRUE(roomKey.key.IsEmpty());
  EXPECT_EQ(Error(), "");
}

TEST_F(Retrieval, SucceedsWhenStatusTimeoutIsNotNumber) {
  const KVMap response = With(ScriptedServices::RoomKeyResponse(), "statustimeout", R"("soon")");
  ASSERT_TRUE(Fetch(Json(response)));
  EXPECT_EQ(Error(), "Invalid timeout value [soon]");
  EXPECT_EQ(peer.statusTimeout, 77U);
  EXPECT_FALSE(peer.certAuth);
}

TEST_F(Retrieval, KeepsEarlierMessageWhenItSucceeds) {
  peer.SetError("earlier");
  ASSERT_TRUE(Fetch(Json(ScriptedServices::RoomKeyResponse())));
  EXPECT_EQ(Error(), "earlier");
}

TEST_F(Retrieval, CopiesAllFourFieldsOfARoomKey) {
  RoomKey copy;
  copy = roomKey;
  ClearRoomKey(roomKey);
  EXPECT_EQ(Str(copy.room), "old room");
  EXPECT_EQ(Str(copy.data), "old data");
  EXPECT_EQ(Certificate::Compare(copy.certificate, LoadCert(Pki::Get().integrity.certificate)), 0);
  EXPECT_FALSE(copy.key.IsEmpty());
}

TEST_F(Retrieval, StartsWithEmptyRoomKey) {
  const RoomKey empty;
  EXPECT_EQ(Str(empty.room) + Str(empty.data), "");
  EXPECT_TRUE(empty.certificate.IsEmpty());
  EXPECT_TRUE(empty.key.IsEmpty());
}

TEST_F(Retrieval, ClearsAllFourFieldsOfARoomKey) {
  ClearRoomKey(roomKey);
  EXPECT_EQ(Str(roomKey.room) + Str(roomKey.data), "");
  EXPECT_TRUE(roomKey.certificate.IsEmpty());
  EXPECT_TRUE(roomKey.key.IsEmpty());
}

TEST_F(Retrieval, NeedsCertificateAndDataForUsableKey) {
  roomKey.key.Clear();
  EXPECT_TRUE(roomKey.IsUsableForEncryption());
  RoomKey noData = roomKey;
  noData.data.Clear();
  EXPECT_FALSE(noData.IsUsableForEncryption());
  RoomKey noCertificate = roomKey;
  noCertificate.certificate.Clear();
  EXPECT_FALSE(noCertificate.IsUsableForEncryption());
}

}  // namespace
}  // namespace OruKalvix

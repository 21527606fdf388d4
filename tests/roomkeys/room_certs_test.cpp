#include "tests/support/client_internals_fixture.h"
#include "tests/support/scripted_services.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::Val;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using TestSupport::CannedResponse;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::NoExchange;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedServices;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::TraceRecorder;
using TestSupport::With;

class RoomCerts : public TestSupport::ClientInternalsTest {
 protected:
  RoomCerts() {
    UseServers({"https://old.example"});
    peer.group = "old group";
    peer.statusTimeout = 77;
    peer.certAuth = true;
  }

  bool Fetch(const CannedResponse& response) {
    http.Then(response);
    return peer.FetchRoomCerts(roomName, certificates, seqnr);
  }
  void ExpectUnchanged() {
    EXPECT_EQ(Str(roomName) + "," + Str(seqnr), "old room,old seqnr");
    EXPECT_EQ(certificates.GetCount(), 1U);
    EXPECT_EQ(Str(peer.group), "old group");
    EXPECT_EQ(peer.keyServerCursor.servers.GetCount(), 1U);
    EXPECT_EQ(peer.statusTimeout, 77U);
    EXPECT_TRUE(peer.certAuth);
  }
  /// All that the response could give is empty.
  void ExpectEmptied() {
    EXPECT_EQ(Str(roomName) + Str(seqnr), "");
    EXPECT_TRUE(certificates.IsEmpty());
    EXPECT_EQ(Str(peer.group), "");
    EXPECT_TRUE(peer.keyServerCursor.servers.IsEmpty());
    EXPECT_EQ(peer.statusTimeout, 0U);
    EXPECT_FALSE(peer.certAuth);
  }

  AnsiStr roomName = "old room";
  Array<Val> certificates = Strings({"old"});
  AnsiStr seqnr = "old seqnr";
};

// The room's certificates are requested with an empty "keyserver" while no key server is in use.
TEST_F(RoomCerts, AreRequestedWithoutServerInUse) {
  ASSERT_TRUE(Fetch(Json(ScriptedServices::RoomCertsResponse())));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://crypt.example/api/crypt/certlist/room%201");
  EXPECT_EQ(request.body, R"({"keyserver":""})");
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(request.headers.size(), 1U);
}

TEST_F(RoomCerts, AreRequestedWithServerInUse) {
  UseKnownServer();
  ASSERT_TRUE(Fetch(Json(ScriptedServices::RoomCertsResponse())));
  EXPECT_EQ(http.GetRequest(0).body, R"({"keyserver":"https://one.example"})");
}

TEST_F(RoomCerts, ComeWithRoomAndSequenceNumber) {
  ASSERT_TRUE(Fetch(Json(ScriptedServices::RoomCertsResponse())));
  EXPECT_EQ(Str(roomName), "room 1");
  EXPECT_EQ(Str(seqnr), "42");
  EXPECT_EQ(JsonText(Val(certificates)), R"(["member-1","member-2"])");
}

TEST_F(RoomCerts, ComeWithTheConfiguration) {
  peer.certAuth = false;
  ASSERT_TRUE(Fetch(Json(With(ScriptedServices::RoomCertsResponse(), "certauth", "true"))));
  EXPECT_EQ(Str(peer.group), TestSupport::kGroup);
  EXPECT_EQ(JsonText(Val(peer.keyServerCursor.servers)), R"(["https://one.example"])");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "");
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_TRUE(client.GetCertAuth());
}

TEST_F(RoomCerts, AreEmptyWhenResponseIsEmpty) {
  ASSERT_TRUE(Fetch(Json("")));
  ExpectEmptied();
}

// An error in the body of a good response goes unnoticed: there are just no certificates.
TEST_F(RoomCerts, AreEmptyWhenResponseHasOnlyError) {
  ASSERT_TRUE(Fetch(Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"refused"})")));
  ExpectEmptied();
  EXPECT_EQ(Error(), "");
}

TEST_F(RoomCerts, ReportEachMissingMember) {
  const TraceRecorder traces;
  ASSERT_TRUE(Fetch(Json("{}")));
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U, 8U, 5U, 8U, 5U, 1U));
}

TEST_F(RoomCerts, ReportEachMemberOfAnotherType) {
  const TraceRecorder traces;
  ASSERT_TRUE(
      Fetch(Json(R"({"room":1,"seqnr":42,"certificates":"c","group":1,"keyserver":{},"statustimeout":5,)"
                 R"("certauth":"yes"})")));
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U, 8U, 5U, 8U, 5U, 1U));
  ExpectEmptied();
}

TEST_F(RoomCerts, ComeEvenIfStatusTimeoutIsNotNumber) {
  ASSERT_TRUE(Fetch(Json(With(ScriptedServices::RoomCertsResponse(), "statustimeout", R"("soon")"))));
  EXPECT_EQ(Error(), "Invalid timeout value [soon]");
  EXPECT_EQ(Str(seqnr), "42");
  EXPECT_EQ(peer.statusTimeout, 77U);
  EXPECT_FALSE(peer.certAuth);
}

TEST_F(RoomCerts, LeaveClientUnchangedWhenExchangeFails) {
  EXPECT_FALSE(Fetch(NoExchange("no route")));
  EXPECT_EQ(Error(), "Could not get room certificates: no route");
  EXPECT_FALSE(Fetch(Status(500)));
  EXPECT_EQ(Error(), "Could not get room certificates: HTTP 500");
  EXPECT_FALSE(Fetch(Json("<html>")));
  EXPECT_THAT(Error(), StartsWith("Could not get room certificates: Could not parse response: "));
  ExpectUnchanged();
}

TEST_F(RoomCerts, NeedAServiceUrl) {
  CryptClient other(&http, "", "", kRoom);
  EXPECT_FALSE(CryptClientTestPeer(other).FetchRoomCerts(roomName, certificates, seqnr));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  EXPECT_EQ(http.GetRequestCount(), 0U);
  ExpectUnchanged();
}

class NewKey : public TestSupport::ClientInternalsTest {
 protected:
  bool Upload(const CannedResponse& response) {
    http.Then(response);
    return peer.UploadRoomKey("wrapped", "42");
  }
};

TEST_F(NewKey, IsUploadedAfterItsSequenceNumber) {
  ASSERT_TRUE(Upload(Json("")));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://crypt.example/api/crypt/newkey/room%201");
  EXPECT_EQ(request.body, R"({"seqnr":"42","key":"wrapped"})");
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(request.headers.size(), 1U);
}

TEST_F(NewKey, IsAcceptedWhenResponseIsEmpty) {
  peer.SetError("earlier");
  EXPECT_TRUE(Upload(Json("")));
  EXPECT_EQ(Error(), "earlier");
}

// A new room key counts as taken though the body of a good response holds an error: nothing is read from it.
TEST_F(NewKey, IsAcceptedWhenResponseHasError) {
  const TraceRecorder traces;
  EXPECT_TRUE(Upload(Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"refused"})")));
  EXPECT_EQ(Error(), "");
  EXPECT_TRUE(traces.GetInvalidTypes().empty());
}

TEST_F(NewKey, FailsWhenResponseIsNotJSON) {
  EXPECT_FALSE(Upload(Json("OK")));
  EXPECT_THAT(Error(), StartsWith("Could not upload new room key: Could not parse response: "));
}

TEST_F(NewKey, FailsWhenExchangeFails) {
  EXPECT_FALSE(Upload(NoExchange("no route")));
  EXPECT_EQ(Error(), "Could not upload new room key: no route");
  EXPECT_FALSE(Upload(Status(409)));
  EXPECT_EQ(Error(), "Could not upload new room key: HTTP 409");
}

TEST_F(NewKey, NeedsAServiceUrl) {
  CryptClient other(&http, "", "", kRoom);
  EXPECT_FALSE(CryptClientTestPeer(other).UploadRoomKey("wrapped", "42"));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

TEST_F(NewKey, IsUploadedWithSequenceNumberUnchanged) {
  http.Then(Json(""));
  ASSERT_TRUE(peer.UploadRoomKey("wrapped", " 007/\"x\" "));
  EXPECT_EQ(http.GetRequest(0).body, R"({"seqnr":" 007/\"x\" ","key":"wrapped"})");
}

TEST_F(NewKey, LeavesClientUnchanged) {
  UseKnownServer();
  peer.group = "group";
  ASSERT_TRUE(Upload(Json(ScriptedServices::RoomCertsResponse())));
  EXPECT_EQ(Str(peer.group), "group");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "https://one.example");
}

}  // namespace
}  // namespace OruKalvix

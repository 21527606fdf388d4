#include <cctype>

#include "foundation/clock.h"
#include "foundation/dates.h"
#include "tests/support/client_internals_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::datetime;
using OruGuiBase::Val;
using OruGuiBase::ValType;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::DateResponse;
using TestSupport::Json;
using TestSupport::NoExchange;
using TestSupport::RecordedRequest;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;

constexpr datetime kTime{1994, 11, 6, 8, 49, 37};

class Connection : public TestSupport::ClientInternalsTest {
 protected:
  Connection() {
    UseServers({"https://one.example", "https://two.example"});
    CryptClientTestPeer::NextKeyServer(peer.keyServerCursor);
  }
  datetime StoredTime(const char* url) const { return peer.serverTimes.Get(url).AsDateTime(); }
  /// Makes the last probe lie this long ago.
  void SetAge(std::uint32_t milliseconds) { peer.statusClock = OruGuiBase::GetClockTicks() - milliseconds; }
};

// A probe is a GET of "status" with a random decimal number for its query.
TEST_F(Connection, ProbesTheStatusWithARandomNumber) {
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  const RecordedRequest request = http.GetRequest(0);
  const std::string begin = "https://one.example/status?";
  EXPECT_EQ(request.method, "GET");
  ASSERT_THAT(request.url, StartsWith(begin));
  const std::string number = request.url.substr(begin.size());
  EXPECT_GE(number.size(), 1U);
  EXPECT_LE(number.size(), 20U);
  for (const char digit : number) EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(digit))) << number;
  EXPECT_THAT(request.headers, IsEmpty());
  EXPECT_EQ(request.body, "");
}

TEST_F(Connection, ProbesWithAnotherNumberEachTime) {
  peer.certAuth = true;
  http.Then(Alive()).Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  ASSERT_TRUE(peer.KeyServerConnect());
  EXPECT_NE(http.GetRequest(0).url, http.GetRequest(1).url);
}

// The date of a probe's response is kept for the server, without milliseconds and zone.
TEST_F(Connection, KeepsTheServersTime) {
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  const Val stored = peer.serverTimes.Get("https://one.example");
  EXPECT_EQ(stored.GetType(), ValType::Date);
  EXPECT_EQ(stored.AsDateTime(), kTime);
  EXPECT_EQ(stored.AsPackedDateTime().GetMilliseconds(), 0U);
  EXPECT_EQ(stored.AsPackedDateTime().GetZoneMinutes(), 0);
  EXPECT_EQ(peer.serverTimes.GetCount(), 1U);
}

// A server that has responded once is not probed again.
TEST_F(Connection, ProbesNoKnownServer) {
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  ASSERT_TRUE(peer.KeyServerConnect());
  EXPECT_EQ(http.GetRequestCount(), 1U);
}

TEST_F(Connection, ProbesAKnownServerEachTimeUnderCertAuth) {
  http.Then(Alive()).Then(DateResponse("Sun, 06 Nov 1994 09:00:00 GMT"));
  ASSERT_TRUE(peer.KeyServerConnect());
  peer.certAuth = true;
  ASSERT_TRUE(peer.KeyServerConnect());
  EXPECT_EQ(StoredTime("https://one.example"), (datetime{1994, 11, 6, 9, 0, 0}));
}

TEST_F(Connection, ProbesEachServer) {
  http.Then(Alive()).Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  CryptClientTestPeer::NextKeyServer(peer.keyServerCursor);
  ASSERT_TRUE(peer.KeyServerConnect());
  EXPECT_THAT(http.GetLines(),
              ElementsAre("GET https://one.example/status", "GET https://two.example/status"));
  EXPECT_EQ(peer.serverTimes.GetCount(), 2U);
}

TEST_F(Connection, GivesTheProbeTheStatusTimeout) {
  client.SetStatusTimeout("3");
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  EXPECT_TRUE(http.GetRequest(0).options.useTimeouts);
  EXPECT_THAT(http.GetRequest(0).options.timeouts, ElementsAre(3000U, 3000U, 3000U));
}

TEST_F(Connection, ProbesWithoutTimeoutWhenNoneIsSet) {
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  EXPECT_FALSE(http.GetRequest(0).options.useTimeouts);
}

// A failed probe gives "Could not connect to key server: %s" and leaves clock and times.
TEST_F(Connection, ReportsWhyProbeFailed) {
  peer.statusClock = 77;
  http.Then(NoExchange("connection refused")).Then(Status(503));
  EXPECT_FALSE(peer.KeyServerConnect());
  EXPECT_EQ(Error(), "Could not connect to key server: connection refused");
  EXPECT_FALSE(peer.KeyServerConnect());
  EXPECT_EQ(Error(), "Could not connect to key server: HTTP 503");
  EXPECT_EQ(peer.statusClock, 77U);
  EXPECT_TRUE(peer.serverTimes.IsEmpty());
}

// A response to a probe without a date is "Invalid key server time []".
TEST_F(Connection, FailsWhenResponseHasNoDate) {
  const TraceRecorder traces;
  http.Then(Json("alive"));
  EXPECT_FALSE(peer.KeyServerConnect());
  EXPECT_EQ(Error(), "Invalid key server time []");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
  EXPECT_TRUE(peer.serverTimes.IsEmpty());
}

// A date that is not of RFC 1123 is "Invalid key server time [%s]".
TEST_F(Connection, FailsWhenDateHasAnotherForm) {
  for (const char* date :
       {"1994-11-06T08:49:37Z", "Sunday, 06-Nov-94 08:49:37 GMT", "now", "Sun, 31 Feb 2021 00:00:00 GMT"}) {
    http.Then(DateResponse(date));
    EXPECT_FALSE(peer.KeyServerConnect()) << date;
    EXPECT_EQ(Error(), std::string("Invalid key server time [") + date + "]");
  }
}

TEST_F(Connection, RestartsClockEvenWhenDateIsBad) {
  SetAge(500000);
  http.Then(Json(""));
  EXPECT_FALSE(peer.KeyServerConnect());
  EXPECT_LT(OruGuiBase::GetClockTicks(peer.statusClock), 400000U);
}

TEST_F(Connection, KeepsTheEarlierTimeWhenALaterProbeHasABadDate) {
  http.Then(Alive()).Then(DateResponse("broken"));
  ASSERT_TRUE(peer.KeyServerConnect());
  SetAge(500000);
  peer.certAuth = true;
  EXPECT_FALSE(peer.KeyServerConnect());
  EXPECT_EQ(StoredTime("https://one.example"), kTime);
  EXPECT_LT(OruGuiBase::GetClockTicks(peer.statusClock), 400000U);
}

TEST_F(Connection, FindsTheDateHeaderInAnyCase) {
  CannedResponse response = Json("");
  response.headers = {{"dATE", TestSupport::kDate}};
  http.Then(response);
  EXPECT_TRUE(peer.KeyServerConnect());
}

// An element of the list that is not a string is probed at "?" and the number.
TEST_F(Connection, ProbesBareQueryForElementThatIsNotUrl) {
  OruGuiBase::Array<Val> servers;
  servers.Append(Val(std::int64_t{7}));
  client.SetKeyServer(servers);
  CryptClientTestPeer::NextKeyServer(peer.keyServerCursor);
  http.Then(NoExchange("no host"));
  EXPECT_FALSE(peer.KeyServerConnect());
  EXPECT_THAT(http.GetRequest(0).url, MatchesRegex("\\?[0-9]+"));
}

TEST_F(Connection, AddsWholeSecondsToServersTime) {
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  SetAge(2950);
  datetime time;
  peer.GetKeyServerTime(time);
  EXPECT_TRUE(time == (datetime{1994, 11, 6, 8, 49, 39}) || time == (datetime{1994, 11, 6, 8, 49, 40}));
}

TEST_F(Connection, CarriesPassedSecondsIntoMinutesAndDays) {
  http.Then(DateResponse("Sat, 31 Dec 1994 23:59:00 GMT"));
  ASSERT_TRUE(peer.KeyServerConnect());
  SetAge(90500);
  datetime time;
  peer.GetKeyServerTime(time);
  EXPECT_EQ(time.year, 1995);
  EXPECT_EQ(time.day, 1);
  EXPECT_EQ(time.minute, 0);
  EXPECT_GE(time.second, 30);
}

// A month and a half later a divisor other than 1000 would be off by more than half an hour.
TEST_F(Connection, CountsAThousandTicksForEachSecond) {
  constexpr std::uint32_t kSeconds = 4'000'000;
  constexpr std::int64_t kBusyMachine = 60;
  http.Then(Alive());
  ASSERT_TRUE(peer.KeyServerConnect());
  SetAge(kSeconds * 1000);
  datetime time;
  peer.GetKeyServerTime(time);
  const std::int64_t passed = OruGuiBase::ToUnixTime(time) - OruGuiBase::ToUnixTime(kTime);
  EXPECT_GE(passed, kSeconds);
  EXPECT_LT(passed, kSeconds + kBusyMachine);
}

TEST_F(Connection, HasNoTimeOfServerThatWasNotProbed) {
  const TraceRecorder traces;
  SetAge(90000);
  datetime time = kTime;
  peer.GetKeyServerTime(time);
  EXPECT_EQ(time, datetime());
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(4U));
}

// A date past the last year that can be kept proves the server alive and leaves its time unset.
TEST_F(Connection, HasNoTimeOfServerWhoseYearIsTooLarge) {
  http.Then(DateResponse("Sun, 06 Nov 4096 08:49:37 GMT"));
  ASSERT_TRUE(peer.KeyServerConnect());
  ASSERT_TRUE(peer.KeyServerConnect());
  datetime time = kTime;
  peer.GetKeyServerTime(time);
  EXPECT_EQ(time, datetime());
}

// The seconds since the last probe count for every server, whichever was probed.
TEST_F(Connection, CountsFromLatestProbeOfAnyServer) {
  http.Then(Alive()).Then(DateResponse("Mon, 07 Nov 1994 00:00:00 GMT"));
  ASSERT_TRUE(peer.KeyServerConnect());
  SetAge(600000);
  CryptClientTestPeer::NextKeyServer(peer.keyServerCursor);
  ASSERT_TRUE(peer.KeyServerConnect());
  peer.keyServerCursor.keyServerUrl = "https://one.example";
  datetime time;
  peer.GetKeyServerTime(time);
  EXPECT_EQ(time.minute, kTime.minute);
}

TEST_F(Connection, FetchesListWithoutToken) {
  http.Then(Alive()).Then(Json("-----BEGIN"));
  peer.authzToken = "unused";
  AnsiStr text;
  ASSERT_TRUE(peer.KeyServerGetText("some/path", text));
  EXPECT_EQ(Str(text), "-----BEGIN");
  EXPECT_THAT(http.GetLines(),
              ElementsAre("GET https://one.example/status", "GET https://one.example/some/path"));
  EXPECT_THAT(http.GetRequest(1).headers, IsEmpty());
  EXPECT_FALSE(http.GetRequest(1).options.useTimeouts);
  EXPECT_EQ(Str(peer.authzToken), "unused");
}

// The certificate lists are fetched from "certstore" and "truststore".
TEST_F(Connection, FetchesTheTwoCertificateLists) {
  http.Then(Alive()).Then(Json("roots")).Then(Json("trusted"));
  AnsiStr roots;
  AnsiStr trusted;
  ASSERT_TRUE(peer.KeyServerGetCertStore(roots));
  ASSERT_TRUE(peer.KeyServerGetTrustStore(trusted));
  EXPECT_EQ(Str(roots) + "," + Str(trusted), "roots,trusted");
  EXPECT_THAT(http.GetLines(),
              ElementsAre("GET https://one.example/status", "GET https://one.example/certstore",
                          "GET https://one.example/truststore"));
}

TEST_F(Connection, FailsWithoutServers) {
  client.SetKeyServer({});
  AnsiStr text("kept");
  EXPECT_FALSE(peer.KeyServerGetText("certstore", text));
  EXPECT_EQ(Error(), "Invalid key server URL");
  EXPECT_EQ(Str(text), "kept");
}

TEST_F(Connection, FetchesListFromNextServerWhenProbeFails) {
  http.Then(Status(500)).Then(Alive()).Then(Json("list"));
  AnsiStr text;
  ASSERT_TRUE(peer.KeyServerGetText("certstore", text));
  EXPECT_EQ(http.GetLines().back(), "GET https://two.example/certstore");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "https://two.example");
}

TEST_F(Connection, FetchesListFromNextServerWhenFirstHasNone) {
  http.Then(Alive()).Then(Status(404)).Then(Alive()).Then(Json("list"));
  AnsiStr text;
  ASSERT_TRUE(peer.KeyServerGetText("certstore", text));
  EXPECT_EQ(Str(text), "list");
  EXPECT_EQ(Error(), "HTTP 404");
}

TEST_F(Connection, FailsWithLastReasonWhenNoServerHasList) {
  http.Then(Alive()).Then(Status(404)).Then(Alive()).Then(Status(410));
  AnsiStr text("kept");
  EXPECT_FALSE(peer.KeyServerGetText("certstore", text));
  EXPECT_EQ(Str(text), "kept");
  EXPECT_EQ(Error(), "HTTP 410");
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), "");
}

}  // namespace
}  // namespace OruKalvix

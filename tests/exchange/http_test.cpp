#include <stdexcept>

#include "tests/support/clienttest.h"
#include "tests/support/files.h"
#include "tests/support/tracerecorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::HeaderOf;
using TestSupport::HttpAnswer;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::Map;
using TestSupport::NoExchange;
using TestSupport::RecordedRequest;
using TestSupport::ScratchDirectory;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;

class Http : public TestSupport::ClientTest {
 protected:
  static constexpr const char* kUrl = "https://server.example/path";

  bool Request(HttpResponse& response) {
    HttpOptions options;
    options.useTimeouts = true;
    options.timeouts[1] = 9;
    return peer.HttpRequest("PATCH", kUrl, Map(R"({"X":"y"})"), "body", options, response);
  }
};

TEST_F(Http, PassesEverythingOnUnchanged) {
  http.Then(Json("answer"));
  HttpResponse response;
  response.targetFile = "";
  ASSERT_TRUE(Request(response));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "PATCH");
  EXPECT_EQ(request.url, kUrl);
  EXPECT_THAT(request.headers, ElementsAre(std::pair<std::string, std::string>("X", "y")));
  EXPECT_EQ(request.body, "body");
  EXPECT_TRUE(request.options.useTimeouts);
  EXPECT_EQ(request.options.timeouts[1], 9U);
  EXPECT_EQ(Str(response.body), "answer");
  EXPECT_EQ(response.status, 200U);
}

TEST_F(Http, TransportThatThrowsIsAFailedExchange) {
  http.Then([](const RecordedRequest&) -> HttpAnswer { throw std::runtime_error("not allowed"); });
  HttpResponse response;
  EXPECT_FALSE(Request(response));
  EXPECT_EQ(Error(), "HTTP service failed");
}

TEST_F(Http, FailsWithoutAServiceAndTracesMethodAndUrl) {
  CryptClient alone(nullptr, kService, "", kRoom);
  CryptClientTestPeer alonePeer(alone);
  alonePeer.responseHeaders = Map(R"({"old":"1"})");
  const TraceRecorder traces;
  AnsiStr body("kept");
  EXPECT_FALSE(alonePeer.HttpGet(kUrl, KVMap(), body));
  EXPECT_EQ(Str(alone.GetErrorMessage()), "No HTTP service");
  EXPECT_THAT(traces.GetTexts(4), ElementsAre("CryptClient: GET https://server.example/path",
                                              "CryptClient: Error: No HTTP service"));
  EXPECT_EQ(JsonText(alonePeer.responseHeaders), R"({"old":"1"})");
  EXPECT_EQ(Str(body), "kept");
}

TEST_F(Http, RecordsTheServicesTextWhenThereWasNoExchange) {
  peer.responseHeaders = Map(R"({"old":"1"})");
  const TraceRecorder traces;
  http.Then(NoExchange("cable cut 100%s"));
  HttpResponse response;
  EXPECT_FALSE(Request(response));
  EXPECT_EQ(Error(), "cable cut 100%s");
  EXPECT_THAT(traces.GetTexts(4), ElementsAre("CryptClient: PATCH https://server.example/path",
                                              "CryptClient: Error: cable cut 100%s"));
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"old":"1"})");
}

TEST_F(Http, TakesAPositiveResultForAnExchange) {
  HttpAnswer answer = Json("x");
  answer.result = 1;
  http.Then(answer);
  HttpResponse response;
  EXPECT_TRUE(Request(response));
}

TEST_F(Http, CountsNothingButStatus200AsSuccess) {
  const struct {
    std::uint32_t status;
    const char* reason;
  } rows[] = {
      {0, "never set"},      {199, "below"},     {201, "created"},      {204, "no content"},
      {206, "partial"},      {301, "moved"},     {302, "found"},        {304, "not modified"},
      {401, "unauthorised"}, {404, "not found"}, {500, "server error"}, {503, "unavailable"},
  };
  for (const auto& row : rows) {
    http.Then(Status(row.status, "body"));
    AnsiStr body("kept");
    EXPECT_FALSE(peer.HttpGet(kUrl, KVMap(), body)) << row.reason;
    EXPECT_EQ(Error(), "HTTP " + std::to_string(row.status)) << row.reason;
    EXPECT_EQ(Str(body), "kept") << row.reason;
  }
}

TEST_F(Http, KeepsTheHeadersOfTheLastGoodExchangeAfterABadStatus) {
  peer.responseHeaders = Map(R"({"old":"1"})");
  HttpAnswer answer = Status(503);
  answer.headers = {{"New", "2"}};
  http.Then(answer);
  HttpResponse response;
  EXPECT_FALSE(Request(response));
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"old":"1"})");
}

TEST_F(Http, TracesAGoodRequestAtLevelOne) {
  const TraceRecorder traces;
  http.Then(Json("{}"));
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  ASSERT_EQ(traces.GetEvents().size(), 1U);
  EXPECT_EQ(traces.GetEvents().front().category, 4096U);
  EXPECT_THAT(traces.GetTexts(1), ElementsAre("CryptClient::HttpRequest: PATCH https://server.example/path"));
}

TEST_F(Http, TracesNoRequestLineForAFailedExchange) {
  const TraceRecorder traces;
  http.Then(Status(404));
  HttpResponse response;
  EXPECT_FALSE(Request(response));
  EXPECT_THAT(traces.GetTexts(1), IsEmpty());
}

TEST_F(Http, KeepsResponseHeadersUnderLowerCaseNames) {
  peer.responseHeaders = Map(R"({"old":"1"})");
  HttpAnswer answer = Json("");
  answer.headers = {{"Date", "D"}, {"X-SEC-Status", "601"}, {"plain", "Value"}};
  http.Then(answer);
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"date":"D","x-sec-status":"601","plain":"Value"})");
}

TEST_F(Http, LetsTheLaterOfTwoHeadersWinThatDifferInCase) {
  HttpAnswer answer = Json("");
  answer.headers = {{"DATE", "first"}, {"Other", "o"}, {"Date", "second"}};
  http.Then(answer);
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"date":"second","other":"o"})");
}

TEST_F(Http, LeavesTheNamesInTheResponseAsTheServerSentThem) {
  HttpAnswer answer = Json("");
  answer.headers = {{"DATE", "x"}};
  http.Then(answer);
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  EXPECT_EQ(JsonText(response.headers), R"({"DATE":"x"})");
}

TEST_F(Http, GetsWithoutBodyAndTimeouts) {
  http.Then(Json("answer"));
  AnsiStr body("old");
  ASSERT_TRUE(peer.HttpGet(kUrl, Map(R"({"A":"b"})"), body));
  EXPECT_EQ(Str(body), "answer");
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(HeaderOf(request, "A"), "b");
  EXPECT_EQ(request.headers.size(), 1U);
  EXPECT_EQ(request.targetFile, "");
  EXPECT_FALSE(request.options.useTimeouts);
  EXPECT_THAT(request.options.timeouts, ElementsAre(0U, 0U, 0U));
  EXPECT_EQ(request.options.reserved, 0U);
}

TEST_F(Http, GivesAllThreeTimeoutsTheSameValue) {
  http.Then(Json(""));
  AnsiStr body;
  ASSERT_TRUE(peer.HttpGet(kUrl, KVMap(), body, 1500));
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_TRUE(request.options.useTimeouts);
  EXPECT_THAT(request.options.timeouts, ElementsAre(1500U, 1500U, 1500U));
  EXPECT_EQ(request.options.reserved, 0U);
}

TEST_F(Http, TreatsATimeoutOfZeroAsNone) {
  http.Then(Json(""));
  AnsiStr body;
  ASSERT_TRUE(peer.HttpGet(kUrl, KVMap(), body, 0));
  EXPECT_FALSE(http.GetRequest(0).options.useTimeouts);
}

TEST_F(Http, KeepsTheCallersTextWhenAGetWithTimeoutFails) {
  http.Then(NoExchange("late"));
  AnsiStr body("kept");
  EXPECT_FALSE(peer.HttpGet(kUrl, KVMap(), body, 10));
  EXPECT_EQ(Str(body), "kept");
}

TEST_F(Http, PostsTheBodyAsTextJson) {
  http.Then(Json("answer"));
  AnsiStr answer("old");
  ASSERT_TRUE(peer.HttpPost(kUrl, "{}", Map(R"({"A":"b"})"), answer));
  EXPECT_EQ(Str(answer), "answer");
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, kUrl);
  EXPECT_EQ(request.body, "{}");
  EXPECT_EQ(HeaderOf(request, "A"), "b");
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_FALSE(request.options.useTimeouts);
  EXPECT_THAT(request.options.timeouts, ElementsAre(0U, 0U, 0U));
  EXPECT_EQ(request.targetFile, "");
}

TEST_F(Http, ReplacesAContentTypeWithoutTouchingTheCallersMap) {
  http.Then(Json(""));
  const KVMap headers = Map(R"({"Content-Type":"text/plain"})");
  AnsiStr answer;
  ASSERT_TRUE(peer.HttpPost(kUrl, "", headers, answer));
  EXPECT_EQ(HeaderOf(http.GetRequest(0), "Content-Type"), "text/json");
  EXPECT_EQ(http.GetRequest(0).headers.size(), 1U);
  EXPECT_EQ(JsonText(headers), R"({"Content-Type":"text/plain"})");
}

TEST_F(Http, KeepsTheCallersTextWhenAPostFails) {
  http.Then(Status(500, "error page"));
  AnsiStr answer("kept");
  EXPECT_FALSE(peer.HttpPost(kUrl, "", KVMap(), answer));
  EXPECT_EQ(Str(answer), "kept");
  EXPECT_EQ(Error(), "HTTP 500");
}

TEST_F(Http, PostsForABodyThatGoesToAFile) {
  const ScratchDirectory scratch;
  http.Then(Json("to disk"));
  const KVMap headers = Map(R"({"Content-Type":"x","A":"b"})");
  ASSERT_TRUE(peer.HttpPost(kUrl, "{}", headers, scratch.File("answer")));
  EXPECT_EQ(scratch.Read("answer"), "to disk");
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.targetFile, scratch.Path("answer").string());
  EXPECT_EQ(HeaderOf(request, "Content-Type"), "text/json");
  EXPECT_EQ(HeaderOf(request, "A"), "b");
  EXPECT_FALSE(request.options.useTimeouts);
  EXPECT_EQ(JsonText(headers), R"({"Content-Type":"x","A":"b"})");
}

TEST_F(Http, ReportsAFailedPostToAFile) {
  const ScratchDirectory scratch;
  http.Then(NoExchange("disk full")).Then(Status(302));
  EXPECT_FALSE(peer.HttpPost(kUrl, "{}", KVMap(), scratch.File("answer")));
  EXPECT_EQ(Error(), "disk full");
  EXPECT_FALSE(peer.HttpPost(kUrl, "{}", KVMap(), scratch.File("answer")));
  EXPECT_EQ(Error(), "HTTP 302");
}

TEST_F(Http, SharesTheResponseBodyInsteadOfCopyingIt) {
  http.Then(Json("a body that is shared"));
  AnsiStr body;
  ASSERT_TRUE(peer.HttpGet(kUrl, KVMap(), body));
  EXPECT_EQ(body.GetImp()->refCount, 1U);
}

}  // namespace
}  // namespace OruKalvix

#include <cstddef>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "tests/support/client_internals_fixture.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::CannedResponse;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::Map;
using TestSupport::NoExchange;
using TestSupport::RecordedRequest;
using TestSupport::ScratchDirectory;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;

static_assert(offsetof(HttpOptions, useTimeouts) < offsetof(HttpOptions, timeouts) &&
              offsetof(HttpOptions, timeouts) < offsetof(HttpOptions, reserved));
static_assert(offsetof(HttpResponse, headers) < offsetof(HttpResponse, body) &&
              offsetof(HttpResponse, body) < offsetof(HttpResponse, targetFile) &&
              offsetof(HttpResponse, targetFile) < offsetof(HttpResponse, status) &&
              offsetof(HttpResponse, status) < offsetof(HttpResponse, errorText));

class Http : public TestSupport::ClientInternalsTest {
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

TEST_F(Http, TreatsThrowingTransportAsFailedExchange) {
  http.Then([](const RecordedRequest&) -> CannedResponse { throw std::runtime_error("not allowed"); });
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

TEST_F(Http, FailsInEachOperationWithoutAService) {
  const ScratchDirectory scratch;
  CryptClient alone(nullptr, kService, "", kRoom);
  CryptClientTestPeer alonePeer(alone);
  AnsiStr text;
  KVMap object;
  const auto expectNoService = [&](bool done, const char* operation) {
    EXPECT_FALSE(done) << operation;
    EXPECT_EQ(Str(alone.GetErrorMessage()), "No HTTP service") << operation;
    alonePeer.SetError("");
  };
  expectNoService(alonePeer.HttpGet(kUrl, KVMap(), text), "get");
  expectNoService(alonePeer.HttpGet(kUrl, KVMap(), text, 5), "get with a timeout");
  expectNoService(alonePeer.HttpGetJSON(kUrl, KVMap(), object), "get an object");
  expectNoService(alonePeer.HttpPost(kUrl, "", KVMap(), text), "post");
  expectNoService(alonePeer.HttpPost(kUrl, "", KVMap(), scratch.File("answer")), "post to a file");
  expectNoService(alonePeer.HttpPostJSON(kUrl, KVMap(), KVMap(), object), "post an object");
  expectNoService(alonePeer.HttpPostToFile(kUrl, KVMap(), KVMap(), "answer"), "post an object to a file");
}

// A negative result records the transport's message and keeps the headers of the last exchange.
TEST_F(Http, RecordsTransportsMessageWhenThereWasNoExchange) {
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

TEST_F(Http, AcceptsPositiveResultOfTransport) {
  CannedResponse canned = Json("x");
  canned.result = 1;
  http.Then(canned);
  HttpResponse response;
  EXPECT_TRUE(Request(response));
}

// Any status but 200 is the failure "HTTP %ld", and the body is dropped.
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

// Status 204 is the failure "HTTP 204" and no empty success, for a request that may have an empty response
// too.
TEST_F(Http, TreatsNoContentAsFailure) {
  http.Then(Status(204)).Then(Status(204));
  AnsiStr body("kept");
  EXPECT_FALSE(peer.HttpGet(kUrl, KVMap(), body));
  EXPECT_EQ(Error(), "HTTP 204");
  EXPECT_EQ(Str(body), "kept");
  KVMap object = Map(R"({"old":"1"})");
  EXPECT_FALSE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_EQ(JsonText(object), R"({"old":"1"})");
}

TEST_F(Http, TracesMethodAndUrlOfARequestWithABadStatus) {
  const TraceRecorder traces;
  http.Then(Status(503));
  HttpResponse response;
  EXPECT_FALSE(Request(response));
  EXPECT_THAT(traces.GetTexts(4),
              ElementsAre("CryptClient: PATCH https://server.example/path", "CryptClient: Error: HTTP 503"));
}

TEST_F(Http, KeepsTheHeadersOfTheLastGoodExchangeAfterABadStatus) {
  peer.responseHeaders = Map(R"({"old":"1"})");
  CannedResponse canned = Status(503);
  canned.headers = {{"New", "2"}};
  http.Then(canned);
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
  CannedResponse canned = Json("");
  canned.headers = {{"Date", "D"}, {"X-SEC-Status", "601"}, {"plain", "Value"}};
  http.Then(canned);
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"date":"D","x-sec-status":"601","plain":"Value"})");
}

TEST_F(Http, KeepsLaterOfHeadersThatDifferInCase) {
  CannedResponse canned = Json("");
  canned.headers = {{"DATE", "first"}, {"Other", "o"}, {"Date", "second"}};
  http.Then(canned);
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"date":"second","other":"o"})");
}

// A response may have any number of headers.
TEST_F(Http, HandlesManyHeadersInLinearTime) {
  constexpr int kHeaders = 200'000;
  CannedResponse canned = Json("");
  for (int i = 0; i < kHeaders; ++i) canned.headers.emplace_back("X-" + std::to_string(i), "value");
  http.Then(canned);
  const std::clock_t begin = std::clock();
  HttpResponse response;
  ASSERT_TRUE(Request(response));
  EXPECT_LT(static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC, 5.0) << "seconds of CPU time";
  EXPECT_EQ(peer.responseHeaders.Find("x-199999"), kHeaders - 1);
}

TEST_F(Http, LeavesTheNamesInTheResponseAsTheServerSentThem) {
  CannedResponse canned = Json("");
  canned.headers = {{"DATE", "x"}};
  http.Then(canned);
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

TEST_F(Http, KeepsCallersBodyWhenGetWithTimeoutFails) {
  http.Then(NoExchange("late"));
  AnsiStr body("kept");
  EXPECT_FALSE(peer.HttpGet(kUrl, KVMap(), body, 10));
  EXPECT_EQ(Str(body), "kept");
}

TEST_F(Http, PostsTheBodyAsTextJson) {
  http.Then(Json("answer"));
  AnsiStr canned("old");
  ASSERT_TRUE(peer.HttpPost(kUrl, "{}", Map(R"({"A":"b"})"), canned));
  EXPECT_EQ(Str(canned), "answer");
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

// A POST replaces the caller's "Content-Type", and the caller's map keeps its own.
TEST_F(Http, ReplacesAContentTypeWithoutTouchingTheCallersMap) {
  http.Then(Json(""));
  const KVMap headers = Map(R"({"Content-Type":"text/plain"})");
  AnsiStr canned;
  ASSERT_TRUE(peer.HttpPost(kUrl, "", headers, canned));
  EXPECT_EQ(HeaderOf(http.GetRequest(0), "Content-Type"), "text/json");
  EXPECT_EQ(http.GetRequest(0).headers.size(), 1U);
  EXPECT_EQ(JsonText(headers), R"({"Content-Type":"text/plain"})");
}

TEST_F(Http, KeepsCallersBodyWhenPostFails) {
  http.Then(Status(500, "error page"));
  AnsiStr canned("kept");
  EXPECT_FALSE(peer.HttpPost(kUrl, "", KVMap(), canned));
  EXPECT_EQ(Str(canned), "kept");
  EXPECT_EQ(Error(), "HTTP 500");
}

TEST_F(Http, PostsForBodyThatGoesToFile) {
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

/// Responds to each request with the same body, which it shares.
class SharingHttp final : public ICryptClientHttp {
 public:
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  std::int32_t SendRequest(const AnsiStr& method, const AnsiStr&, const KVMap&, const AnsiStr&,
                           const HttpOptions&, HttpResponse& response) override {
    methods += Str(method) + ";";
    if (response.headers.IsEmpty() && response.body.IsEmpty() && response.errorText.IsEmpty())
      ++emptyResponses;
    if (!response.targetFile.IsEmpty()) ++targetFiles;
    response.body = body;
    response.errorText = "left over";
    response.status = 200;
    return 0;
  }

  AnsiStr body{"a body that is shared"};
  std::string methods;
  int emptyResponses = 0;
  int targetFiles = 0;
};

// Each exchange gets a response that is empty but for the target file of a post that goes to one.
TEST_F(Http, PassesEmptyResponseToEachExchange) {
  const ScratchDirectory scratch;
  SharingHttp sharing;
  CryptClient other(&sharing, kService, "", kRoom);
  CryptClientTestPeer otherPeer(other);
  AnsiStr text;
  ASSERT_TRUE(otherPeer.HttpGet(kUrl, KVMap(), text));
  ASSERT_TRUE(otherPeer.HttpGet(kUrl, KVMap(), text, 5));
  ASSERT_TRUE(otherPeer.HttpPost(kUrl, "", KVMap(), text));
  EXPECT_EQ(sharing.targetFiles, 0);
  ASSERT_TRUE(otherPeer.HttpPost(kUrl, "", KVMap(), scratch.File("answer")));
  EXPECT_EQ(sharing.targetFiles, 1);
  EXPECT_EQ(sharing.emptyResponses, 4);
}

TEST_F(Http, SharesTheResponseBodyInsteadOfCopyingIt) {
  SharingHttp sharing;
  CryptClient other(&sharing, kService, "", kRoom);
  AnsiStr got;
  AnsiStr posted;
  ASSERT_TRUE(CryptClientTestPeer(other).HttpGet(kUrl, KVMap(), got));
  ASSERT_TRUE(CryptClientTestPeer(other).HttpPost(kUrl, "", KVMap(), posted));
  EXPECT_EQ(got.GetImp(), sharing.body.GetImp());
  EXPECT_EQ(posted.GetImp(), sharing.body.GetImp());
}

// A transport is a table of four operations: one that is never called, AddRef, Release and SendRequest.
TEST_F(Http, SendsByTheFourthOperationOfTheTransportsTable) {
  SharingHttp sharing;
  ICryptClientHttp* const transport = &sharing;
  using Send = std::int32_t (*)(ICryptClientHttp*, const AnsiStr&, const AnsiStr&, const KVMap&,
                                const AnsiStr&, const HttpOptions&, HttpResponse&);
  void* const* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(transport), sizeof table);
  HttpResponse response;
  EXPECT_EQ(reinterpret_cast<Send>(table[3])(transport, "PUT", "", {}, "", {}, response), 0);
  EXPECT_EQ(response.status, 200U);
  EXPECT_EQ(sharing.methods, "PUT;");
}

}  // namespace
}  // namespace OruKalvix

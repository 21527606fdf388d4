#include "tests/support/client_internals_fixture.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using TestSupport::Ansi;
using TestSupport::CannedResponse;
using TestSupport::Json;
using TestSupport::JsonText;
using TestSupport::Map;
using TestSupport::NoExchange;
using TestSupport::ScratchDirectory;
using TestSupport::Status;
using TestSupport::TraceRecorder;

class HttpJSON : public TestSupport::ClientInternalsTest {
 protected:
  static constexpr const char* kUrl = "https://server.example/json";

  KVMap object = Map(R"({"old":"content"})");
};

TEST_F(HttpJSON, GetsAndParsesAnObject) {
  http.Then(Json(R"({"a":1,"b":["x"]})"));
  ASSERT_TRUE(peer.HttpGetJSON(kUrl, KVMap(), object));
  EXPECT_EQ(JsonText(object), R"({"a":1,"b":["x"]})");
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://server.example/json"));
}

TEST_F(HttpJSON, RefusesEmptyResponseToGet) {
  http.Then(Json(""));
  EXPECT_FALSE(peer.HttpGetJSON(kUrl, KVMap(), object));
  EXPECT_THAT(Error(), StartsWith("Could not parse response: "));
  EXPECT_EQ(JsonText(object), R"({"old":"content"})");
}

TEST_F(HttpJSON, KeepsTheObjectWhenAGetFails) {
  http.Then(Status(404, R"({"a":1})"));
  EXPECT_FALSE(peer.HttpGetJSON(kUrl, KVMap(), object));
  EXPECT_EQ(Error(), "HTTP 404");
  EXPECT_EQ(JsonText(object), R"({"old":"content"})");
}

TEST_F(HttpJSON, PostsAnObjectAndParsesTheResponse) {
  http.Then(Json(R"({"answer":true})"));
  ASSERT_TRUE(peer.HttpPostJSON(kUrl, Map(R"({"b":"1","a":[1,2]})"), KVMap(), object));
  EXPECT_EQ(http.GetRequest(0).body, R"({"b":"1","a":[1,2]})");
  EXPECT_EQ(JsonText(object), R"({"answer":true})");
}

TEST_F(HttpJSON, ReadsEmptyResponseToPostAsEmptyObject) {
  http.Then(Json(""));
  ASSERT_TRUE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_TRUE(object.IsEmpty());
}

TEST_F(HttpJSON, PostsAnEmptyMapAsAnEmptyObject) {
  http.Then(Json(""));
  ASSERT_TRUE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_EQ(http.GetRequest(0).body, "{}");
}

TEST_F(HttpJSON, KeepsTheObjectWhenAPostFails) {
  http.Then(NoExchange("no route"));
  EXPECT_FALSE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_EQ(Error(), "no route");
  EXPECT_EQ(JsonText(object), R"({"old":"content"})");
}

// An object that has no JSON form fails with "Could not convert object to JSON: ", and nothing is sent.
TEST_F(HttpJSON, SendsNothingWithoutJSONForm) {
  KVMap request;
  request.Set("name", Ansi("\xFF"));
  EXPECT_FALSE(peer.HttpPostJSON(kUrl, request, KVMap(), object));
  EXPECT_THAT(Error(), StartsWith("Could not convert object to JSON: "));
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

TEST_F(HttpJSON, ReportsWhyObjectHasNoJSONForm) {
  KVMap request;
  request.Set("name", Ansi("\xFF"));
  AnsiStr text;
  EXPECT_FALSE(peer.CreateRequestJSON(request, text));
  EXPECT_EQ(Error(), "Could not convert object to JSON: A string is not valid UTF-8");
}

// A response that is not JSON fails; the caller's object stays, the headers are the new ones.
TEST_F(HttpJSON, RefusesResponseThatIsNotJSONAndKeepsItsHeaders) {
  CannedResponse response = Json("<html>");
  response.headers = {{"Date", "today"}};
  http.Then(response);
  EXPECT_FALSE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_THAT(Error(), StartsWith("Could not parse response: "));
  EXPECT_EQ(JsonText(object), R"({"old":"content"})");
  EXPECT_EQ(JsonText(peer.responseHeaders), R"({"date":"today"})");
}

// The message of a bad response quotes nothing of it, so no percent sign is formatted.
TEST_F(HttpJSON, QuotesNothingOfBadResponse) {
  http.Then(Json("%s%n%s%n"));
  EXPECT_FALSE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_THAT(Error(), StartsWith("Could not parse response: "));
  EXPECT_EQ(Error().find('%'), std::string::npos);
}

TEST_F(HttpJSON, LeavesAResponseThatGoesToAFileUnparsed) {
  const ScratchDirectory scratch;
  const std::string path = scratch.Path("answer").string();
  http.Then(Json("no,json"));
  ASSERT_TRUE(peer.HttpPostToFile(kUrl, Map(R"({"a":"b"})"), KVMap(), Ansi(path)));
  EXPECT_EQ(scratch.Read("answer"), "no,json");
  EXPECT_EQ(http.GetRequest(0).body, R"({"a":"b"})");
  EXPECT_EQ(http.GetRequest(0).targetFile, path);
}

TEST_F(HttpJSON, SendsNothingWithoutJSONFormForFile) {
  KVMap request;
  request.Set("name", Ansi("\xFF"));
  EXPECT_FALSE(peer.HttpPostToFile(kUrl, request, KVMap(), "file"));
  EXPECT_THAT(Error(), StartsWith("Could not convert object to JSON: "));
  EXPECT_EQ(http.GetRequestCount(), 0U);
}

TEST_F(HttpJSON, ReadsResponseOfAnotherTypeAsEmptyObject) {
  for (const char* body : {"[1]", "7", "\"text\"", "true", "null"}) {
    const TraceRecorder traces;
    object = Map(R"({"old":"content"})");
    EXPECT_TRUE(peer.ParseResponseJSON(body, object)) << body;
    EXPECT_TRUE(object.IsEmpty()) << body;
    EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(7U)) << body;
  }
}

// Each line of a request is traced with its number, unmasked, at level 2.
TEST_F(HttpJSON, TracesARequestLineByLine) {
  const TraceRecorder traces;
  http.Then(Json(""));
  ASSERT_TRUE(peer.HttpPostJSON(kUrl, Map(R"({"password":"secret"})"), KVMap(), object));
  EXPECT_THAT(traces.GetTexts(2),
              ElementsAre(R"(CryptClient::HttpPost: request[00] = {"password":"secret"})"));
}

// Each line of a response is traced with its number, unmasked, at level 2.
TEST_F(HttpJSON, TracesAResponseLineByLine) {
  const TraceRecorder traces;
  ASSERT_TRUE(peer.ParseResponseJSON("{\n\"a\":1\r\n}", object));
  EXPECT_THAT(traces.GetTexts(2), ElementsAre("CryptClient::ParseResponseJSON: response[00] = {",
                                              "CryptClient::ParseResponseJSON: response[01] = \"a\":1",
                                              "CryptClient::ParseResponseJSON: response[02] = }"));
  for (const auto& event : traces.GetEvents()) EXPECT_EQ(event.category, 4096U);
}

TEST_F(HttpJSON, TracesABadResponseAfterItsError) {
  const TraceRecorder traces;
  EXPECT_FALSE(peer.ParseResponseJSON("{\n?", object));
  const auto events = traces.GetEvents();
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0].level, 4U);
  EXPECT_THAT(events[0].text, StartsWith("CryptClient: Error: Could not parse response: "));
  EXPECT_EQ(events[1].text, "CryptClient::ParseResponseJSON: response[00] = {");
  EXPECT_EQ(events[2].text, "CryptClient::ParseResponseJSON: response[01] = ?");
}

TEST_F(HttpJSON, TracesLineIndexOfThreeDigits) {
  const TraceRecorder traces;
  std::string body = "{";
  for (int i = 0; i < 101; ++i) body += '\n';
  body += "}";
  ASSERT_TRUE(peer.ParseResponseJSON(Ansi(body), object));
  const std::vector<std::string> texts = traces.GetTexts(2);
  ASSERT_EQ(texts.size(), 102U);
  EXPECT_EQ(texts[9], "CryptClient::ParseResponseJSON: response[09] = ");
  EXPECT_EQ(texts[101], "CryptClient::ParseResponseJSON: response[101] = }");
}

TEST_F(HttpJSON, CountsLinesOfEachBodyFromZero) {
  const TraceRecorder traces;
  ASSERT_TRUE(peer.ParseResponseJSON("{}", object));
  ASSERT_TRUE(peer.ParseResponseJSON("{}", object));
  EXPECT_THAT(traces.GetTexts(2), ElementsAre("CryptClient::ParseResponseJSON: response[00] = {}",
                                              "CryptClient::ParseResponseJSON: response[00] = {}"));
}

TEST_F(HttpJSON, TracesNothingForAnEmptyResponse) {
  const TraceRecorder traces;
  http.Then(Json(""));
  ASSERT_TRUE(peer.HttpPostJSON(kUrl, KVMap(), KVMap(), object));
  EXPECT_THAT(traces.GetTexts(2), ElementsAre("CryptClient::HttpPost: request[00] = {}"));
}

}  // namespace
}  // namespace OruKalvix

#include "tests/support/scripted_http.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/text.h"

namespace TestSupport {
namespace {

using OruKalvix::HttpOptions;
using OruKalvix::HttpResponse;
using ::testing::ElementsAre;

std::int32_t Send(ScriptedHttp& http, const char* method, const char* url, HttpResponse& response) {
  return http.SendRequest(method, url, Map(R"({"A":"b"})"), "body", HttpOptions(), response);
}

TEST(ScriptedHttp, GivesTheResponsesOfTheLineInOrder) {
  ScriptedHttp http;
  http.Then(Json("1")).Then(Status(404, "2"));
  HttpResponse first;
  HttpResponse second;
  EXPECT_EQ(Send(http, "GET", "u", first), 0);
  EXPECT_EQ(Send(http, "GET", "u", second), 0);
  EXPECT_EQ(first.status, 200U);
  EXPECT_EQ(Str(first.body), "1");
  EXPECT_EQ(second.status, 404U);
  EXPECT_EQ(Str(second.body), "2");
}

TEST(ScriptedHttp, TakesTheFirstRuleThatFitsMethodAndUrl) {
  ScriptedHttp http;
  http.On("POST", "/a", Json("posted")).On("", "/a", Json("any")).On("GET", "", Json("rest"));
  HttpResponse posted;
  HttpResponse any;
  HttpResponse rest;
  Send(http, "POST", "x/a", posted);
  Send(http, "GET", "x/a", any);
  Send(http, "GET", "x/b", rest);
  EXPECT_EQ(Str(posted.body) + Str(any.body) + Str(rest.body), "postedanyrest");
}

TEST(ScriptedHttp, RecordsWhatWasAsked) {
  ScriptedHttp http;
  http.Then(Json(""));
  HttpOptions options;
  options.useTimeouts = true;
  options.timeouts[2] = 7;
  HttpResponse response;
  http.SendRequest("PUT", "http://u?q", Map(R"({"A":"b"})"), "text", options, response);
  const RecordedRequest request = http.GetRequest(0);
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.url, "http://u?q");
  EXPECT_EQ(HeaderOf(request, "A"), "b");
  EXPECT_EQ(HeaderOf(request, "B"), "(none)");
  EXPECT_EQ(request.body, "text");
  EXPECT_TRUE(request.options.useTimeouts);
  EXPECT_EQ(request.options.timeouts[2], 7U);
  EXPECT_THAT(http.GetLines(), ElementsAre("PUT http://u"));
}

TEST(ScriptedHttp, WritesTheBodyToTheTargetFile) {
  const ScratchDirectory scratch;
  ScriptedHttp http;
  http.Then(Json("to disk"));
  HttpResponse response;
  response.targetFile = Ansi(scratch.Path("body").string());
  EXPECT_EQ(Send(http, "GET", "u", response), 0);
  EXPECT_EQ(scratch.Read("body"), "to disk");
  EXPECT_TRUE(response.body.IsEmpty());
}

TEST(ScriptedHttp, FailsAnExchangeWithItsErrorMessage) {
  ScriptedHttp http;
  http.Then(NoExchange("cable cut"));
  HttpResponse response;
  EXPECT_LT(Send(http, "GET", "u", response), 0);
  EXPECT_EQ(Str(response.errorText), "cable cut");
}

TEST(ScriptedHttp, RunsACallbackWithTheRequest) {
  ScriptedHttp http;
  http.Then([](const RecordedRequest& request) { return Json(request.body + "!"); });
  HttpResponse response;
  Send(http, "GET", "u", response);
  EXPECT_EQ(Str(response.body), "body!");
}

TEST(ScriptedHttp, FailsTheTestWhenThereIsNoResponse) {
  ScriptedHttp http;
  HttpResponse response;
  std::int32_t result = 0;
  EXPECT_NONFATAL_FAILURE(result = Send(http, "GET", "http://nobody", response), "http://nobody");
  EXPECT_LT(result, 0);
}

TEST(ScriptedHttp, FailsTheTestForAResponseThatNobodyAskedFor) {
  EXPECT_NONFATAL_FAILURE(ScriptedHttp().Then(Json("{}")), "never asked for");
}

TEST(ScriptedHttp, FailsTheTestForARequestThatWasNeverMade) {
  const ScriptedHttp http;
  EXPECT_NONFATAL_FAILURE(http.GetRequest(0), "never made");
}

TEST(ScriptedHttp, CountsReferences) {
  ScriptedHttp http;
  http.AddRef();
  http.AddRef();
  http.Release();
  EXPECT_EQ(http.GetAddRefs(), 2U);
  EXPECT_EQ(http.GetReleases(), 1U);
  EXPECT_EQ(http.GetQueries(), 0U);
}

}  // namespace
}  // namespace TestSupport

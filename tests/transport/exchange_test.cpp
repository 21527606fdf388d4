// One exchange of CryptClientCurl: what it sends and what it takes from the response.
#include <atomic>

#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::Not;
using ::testing::Pair;

/// A server that records the latest request and responds with the same bytes each time.
struct FixedServer {
  explicit FixedServer(std::string bytes) : response(std::move(bytes)) {}

  RecordedRequest GetRequest() const { return request.Get(); }

  const std::string response;
  Guarded<RecordedRequest> request;
  std::atomic<int> count{0};
  RawServer server{RespondToAll([this](RawConnection& connection, const RecordedRequest& got) {
    request.Set(got);
    ++count;
    connection.Send(response);
  })};
};

constexpr const char* kEmpty = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

TEST(CurlExchange, NamesItselfWithTheVersion) {
  FixedServer fixed(kEmpty);
  Send(*MakeCurl(), fixed.server.Url("/"));
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "User-Agent"), "cryptcli/1.0.0");
}

TEST(CurlExchange, SendsABodyOfAnyLengthWithoutAskingFirst) {
  FixedServer fixed(kEmpty);
  const std::string body(std::size_t{3} << 20U, 'x');
  EXPECT_EQ(Send(*MakeCurl(), fixed.server.Url("/"), Post(body)).status, 200U);
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "Expect"), "(none)");
  EXPECT_EQ(fixed.GetRequest().body, body);
}

TEST(CurlExchange, MakesUpNoContentType) {
  FixedServer fixed(kEmpty);
  Send(*MakeCurl(), fixed.server.Url("/"), Post("{}"));
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "Content-Type"), "(none)");
}

TEST(CurlExchange, SendsTheHeadersOfTheOptions) {
  FixedServer fixed(kEmpty);
  OruKalvix::CryptClientCurlOptions options;
  options.headers = Map(R"({"X-Tenant":"7","X-Trace":"all"})");
  Ask ask;
  ask.headers = {{"x-trace", "mine"}};
  Send(*MakeCurl(options), fixed.server.Url("/"), ask);
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "X-Tenant"), "7");
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "x-trace"), "mine");
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "X-Trace"), "(none)");
}

TEST(CurlExchange, SendsAHeaderWithAnEmptyValue) {
  FixedServer fixed(kEmpty);
  Ask ask;
  ask.headers = {{"X-Empty", ""}};
  Send(*MakeCurl(), fixed.server.Url("/"), ask);
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "X-Empty"), "");
}

TEST(CurlExchange, LeavesDotSegmentsOfThePathAlone) {
  FixedServer fixed(kEmpty);
  Send(*MakeCurl(), fixed.server.Url("/crypt/../key/./x"));
  EXPECT_EQ(fixed.GetRequest().url, "/crypt/../key/./x");
}

TEST(CurlExchange, DoesNotFollowARedirect) {
  FixedServer fixed("HTTP/1.1 302 Found\r\nLocation: /other\r\nContent-Length: 0\r\n\r\n");
  const Outcome outcome = Send(*MakeCurl(), fixed.server.Url("/"));
  EXPECT_EQ(outcome.status, 302U);
  EXPECT_THAT(outcome.headers, Contains(Pair("Location", "/other")));
  EXPECT_EQ(fixed.count, 1);
}

TEST(CurlExchange, HasTheHeadersOfTheFinalResponseAlone) {
  FixedServer fixed(
      "HTTP/1.1 100 Continue\r\nX-First: 1\r\n\r\n"
      "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n"
      "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nDate: now\r\n\r\nok");
  const Outcome outcome = Send(*MakeCurl(), fixed.server.Url("/"));
  EXPECT_EQ(outcome.status, 200U);
  EXPECT_EQ(outcome.body, "ok");
  EXPECT_THAT(outcome.headers, ElementsAre(Pair("Content-Length", "2"), Pair("Date", "now")));
}

TEST(CurlExchange, LeavesTrailersOut) {
  FixedServer fixed(
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
      "3\r\nabc\r\n2\r\nde\r\n0\r\nX-Sec-Status: 0\r\n\r\n");
  const Outcome outcome = Send(*MakeCurl(), fixed.server.Url("/"));
  EXPECT_EQ(outcome.body, "abcde");
  EXPECT_THAT(outcome.headers, Not(Contains(Key("X-Sec-Status"))));
}

TEST(CurlExchange, TheLaterOfTwoHeadersOfOneNameWins) {
  FixedServer fixed("HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 0\r\nX-A: 2\r\n\r\n");
  EXPECT_THAT(Send(*MakeCurl(), fixed.server.Url("/")).headers, Contains(Pair("X-A", "2")));
}

TEST(CurlExchange, JoinsAFoldedHeader) {
  FixedServer fixed("HTTP/1.1 200 OK\r\nX-A: one\r\n  two\r\nContent-Length: 0\r\n\r\n");
  EXPECT_THAT(Send(*MakeCurl(), fixed.server.Url("/")).headers, Contains(Pair("X-A", "one two")));
}

TEST(CurlExchange, TakesABodyThatEndsWithTheConnection) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send("HTTP/1.0 200 OK\r\n\r\nto the end");
    connection.Close();
  });
  EXPECT_EQ(Send(*MakeCurl(), server.Url("/")).body, "to the end");
}

struct BadRequest {
  const char* reason;
  Ask ask;
  const char* errorText;
};

TEST(CurlExchange, SendsNothingOfARequestThatItRefuses) {
  FixedServer fixed(kEmpty);
  const auto http = MakeCurl();
  Ask put{.method = "PUT"};
  Ask getWithBody{.body = "x"};
  Ask injected{.headers = {{"X-SEC-AUTHZTOKEN", "a\r\nX-Admin: 1"}}};
  Ask length = Post("{}");
  length.headers = {{"Content-Length", "1"}};
  for (const BadRequest& row : {BadRequest{"another method", put, "Invalid method"},
                                BadRequest{"a body that GET does not have", getWithBody, "a GET has no body"},
                                BadRequest{"a header with a second line", injected, "X-SEC-AUTHZTOKEN"},
                                BadRequest{"a second framing", length, "Content-Length"}}) {
    const Outcome outcome = Send(*http, fixed.server.Url("/"), row.ask);
    EXPECT_LT(outcome.result, 0) << row.reason;
    EXPECT_THAT(outcome.errorText, HasSubstr(row.errorText)) << row.reason;
  }
  EXPECT_EQ(fixed.server.GetConnectionCount(), 0U);
}

TEST(CurlExchange, RefusesAnInvalidUrl) {
  const auto http = MakeCurl();
  for (const char* url : {"", "rest/json", "ftp://127.0.0.1/", "file:///etc/passwd", "http://"}) {
    const Outcome outcome = Send(*http, url);
    EXPECT_LT(outcome.result, 0) << url;
    EXPECT_THAT(outcome.errorText, HasSubstr("Invalid URL")) << url;
  }
}

TEST(CurlExchange, KeepsNothingFromTheExchangeBefore) {
  FixedServer fixed(kEmpty);
  const auto http = MakeCurl();
  Ask first = Post("secret");
  first.headers = {{"X-SEC-AUTHZTOKEN", "token"}};
  Send(*http, fixed.server.Url("/"), first);
  Send(*http, fixed.server.Url("/"));
  EXPECT_EQ(fixed.GetRequest().method, "GET");
  EXPECT_EQ(HeaderOf(fixed.GetRequest(), "X-SEC-AUTHZTOKEN"), "(none)");
  EXPECT_THAT(fixed.GetRequest().body, IsEmpty());
}

TEST(CurlExchange, KnowsNoOtherInterface) {
  EXPECT_EQ(MakeCurl()->QueryInterface("anything"), nullptr);
}

}  // namespace
}  // namespace TestSupport

#include <chrono>
#include <thread>

#include "tests/stand/http_fixture.h"

namespace CryptStand {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST_F(HttpWireTest, RejectsMalformedRequestsWithBadRequest) {
  const struct {
    const char* bytes;
    const char* reason;
  } rows[] = {
      {"nonsense\r\n\r\n", "no request line"},
      {"GET /\r\n\r\n", "no version"},
      {"GET / HTTP/2.0\r\n\r\n", "another version"},
      {"GET  HTTP/1.1\r\n\r\n", "no target"},
      {"GET / HTTP/1.1\nHost: x\n\n", "bare line feeds"},
      {"GET / HTTP/1.1\r\nHost\r\n\r\n", "a header without a colon"},
      {"GET / HTTP/1.1\r\nHo st: x\r\n\r\n", "a space in a header's name"},
      {"POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n", "a length that is no number"},
      {"POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", "a negative length"},
      {"POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nxx", "two lengths"},
      {"POST / HTTP/1.1\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\nx", "a length and chunks"},
      {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nx\r\n", "a chunk's size that is no number"},
      {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nxy\r\n0\r\n\r\n",
       "a chunk longer than its size"},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(Exchange(row.bytes), AllOf(StartsWith("HTTP/1.1 400 "), HasSubstr("Connection: close\r\n")))
        << row.reason;
  }
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpWireTest, SurvivesRequestsCutAnywhere) {
  const std::string request = "POST /a HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody";
  EXPECT_EQ(ExchangeAll(""), "") << "nothing was asked";
  for (std::size_t size = 1; size < request.size(); ++size) {
    EXPECT_THAT(ExchangeAll(request.substr(0, size)), StartsWith("HTTP/1.1 400 ")) << size;
  }
  EXPECT_THAT(ExchangeAll(request), EndsWith("POST /a body"));
}

TEST_F(HttpWireTest, ReadsRequestsThatComeByteByByte) {
  RawPeer peer(server_.GetPort());
  for (const char byte :
       std::string("POST /a HTTP/1.1\r\nX: y\r\nContent-Length: 4\r\nConnection: close\r\n\r\nbody")) {
    ASSERT_TRUE(peer.Send({&byte, 1}));
  }
  EXPECT_THAT(peer.ReadAll(), EndsWith("POST /a body"));
}

TEST_F(HttpWireTest, RefusesHeadersAboveItsLimit) {
  const std::string line = "GET / HTTP/1.1\r\n";
  EXPECT_THAT(Exchange(line + "X: " + std::string(70000, 'x') + "\r\n\r\n"), StartsWith("HTTP/1.1 431 "));
  std::string many = line;
  while (many.size() < 70000) many += "X: y\r\n";
  EXPECT_THAT(Exchange(many + "\r\n"), StartsWith("HTTP/1.1 431 "));
  EXPECT_THAT(Exchange(line + "Connection: close\r\nX: " + std::string(60000, 'x') + "\r\n\r\n"),
              StartsWith("HTTP/1.1 200 "));
}

TEST_F(HttpWireTest, RefusesEndlessHeadersThatComeOneByOne) {
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send("GET / HTTP/1.1\r\n"));
  const std::string header = "X: " + std::string(4000, 'x') + "\r\n";
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(peer.Send(header));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // so that each is parsed alone
  }
  EXPECT_THAT(peer.ReadAll(), StartsWith("HTTP/1.1 431 "));
}

TEST_F(HttpWireTest, RefusesTargetsAboveItsLimit) {
  EXPECT_THAT(Exchange("GET /" + std::string(70000, 'x') + " HTTP/1.1\r\n\r\n"), StartsWith("HTTP/1.1 414 "));
}

TEST_F(HttpWireTest, RefusesHugeBodiesBeforeTheyAreSent) {
  EXPECT_THAT(Exchange("POST / HTTP/1.1\r\nContent-Length: 16777217\r\n\r\n").substr(0, 13), "HTTP/1.1 413 ")
      << "the rest may never come";
}

TEST_F(HttpWireTest, TakesBodiesUpToItsLimit) {
  handler_ = [](const HttpRequest& request, const std::stop_token&) {
    HttpReply reply;
    reply.body = std::to_string(request.body.size());
    return reply;
  };
  const std::string body(16U << 20U, 'x');
  EXPECT_EQ(Post(Url(), body).body, "16777216");
  EXPECT_EQ(Post(Url(), body + "x").status, 413);
}

TEST_F(HttpWireTest, ASenderOfAHugeBodyGetsToItsResponse) {
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send("POST / HTTP/1.1\r\nContent-Length: 20971520\r\n\r\n"));
  ASSERT_TRUE(peer.Send(std::string(20U << 20U, 'x'))) << "sent to its end before the response is read";
  peer.EndWriting();
  EXPECT_THAT(peer.ReadAll(), StartsWith("HTTP/1.1 413 "));
  EXPECT_TRUE(peer.HasEnded()) << "an end, not a reset";
}

TEST_F(HttpWireTest, RefusesHugeChunkedBodies) {
  std::string bytes = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (int i = 0; i < 17; ++i) bytes += "100000\r\n" + std::string(1U << 20U, 'x') + "\r\n";
  EXPECT_THAT(ExchangeAll(bytes + "0\r\n\r\n"), StartsWith("HTTP/1.1 413 "));
}

TEST_F(HttpWireTest, ContinuesWhenAClientWaitsForIt) {
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send("POST / HTTP/1.1\r\nContent-Length: 4\r\nExpect: 100-Continue\r\n\r\n"));
  EXPECT_EQ(peer.ReadUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  ASSERT_TRUE(peer.Send("body"));
  EXPECT_THAT(peer.ReadUntil("POST / body"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(HttpWireTest, DoesNotContinueWithWhatItRefuses) {
  EXPECT_THAT(Exchange("POST / HTTP/1.1\r\nContent-Length: 16777217\r\nExpect: 100-continue\r\n\r\n"),
              StartsWith("HTTP/1.1 413 "));
}

TEST_F(HttpWireTest, ReadsChunkedBodies) {
  EXPECT_THAT(Exchange("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n"
                       "3;name=value\r\none\r\n4\r\n two\r\n0\r\nTrailer: x\r\n\r\n"),
              EndsWith("POST / one two"));
}

TEST_F(HttpWireTest, AnswersPipelinedRequestsInTheirOrder) {
  const std::string post = "POST /b HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody";
  const std::string responses = Exchange("GET /a HTTP/1.1\r\n\r\n" + post + kLastGet);
  const std::size_t first = responses.find("GET /a ");
  const std::size_t second = responses.find("POST /b body");
  EXPECT_LT(first, second);
  EXPECT_LT(second, responses.find("GET / "));
  EXPECT_THAT(responses, EndsWith("GET / "));
}

TEST_F(HttpWireTest, KeepsTheConnectionAfterARefusalOfItsHandler) {
  HttpReply reply;
  reply.status = 500;
  RespondWith(reply);
  RawPeer peer(server_.GetPort());
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(peer.Send(kGet)) << i;
    EXPECT_THAT(peer.ReadUntil("\r\n\r\n"), AllOf(StartsWith("HTTP/1.1 500 "), Not(HasSubstr("close")))) << i;
  }
}

TEST_F(HttpWireTest, ServesNoOtherMethods) {
  for (const char* method : {"BREW", "TRACE", "PROPFIND"}) {
    EXPECT_THAT(Exchange(method + std::string(" / HTTP/1.1\r\nConnection: close\r\n\r\n")),
                StartsWith("HTTP/1.1 501 "))
        << method;
  }
}

TEST_F(HttpWireTest, PassesOnRepeatedHeadersInOrder) {
  handler_ = [](const HttpRequest& request, const std::stop_token&) {
    HttpReply reply;
    for (const auto& [name, value] : request.headers) reply.body += name + "=" + value + ";";
    reply.headers = {{"X-Two", "2"}, {"x-one", "1"}, {"X-Two", "3"}};
    return reply;
  };
  const std::string response =
      Exchange("GET / HTTP/1.1\r\nb: %41\r\nA:  two words \r\nB: 3\r\nConnection: close\r\n\r\n");
  EXPECT_THAT(response, HasSubstr("\r\nX-Two: 2\r\nX-Two: 3\r\n"));
  EXPECT_THAT(response, HasSubstr("\r\nx-one: 1\r\n"));
  EXPECT_THAT(BodyOf(response), AllOf(HasSubstr("b=%41;"), HasSubstr("A=two words;"), HasSubstr("B=3;")));
}

class HttpTimeoutTest : public HttpWireTest {
 protected:
  HttpTimeoutTest() : HttpWireTest(HttpTimeouts{300, 300}) {}
};

TEST_F(HttpTimeoutTest, ClosesAnIdleConnectionSilently) {
  EXPECT_EQ(Exchange(""), "");
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send(kGet));
  EXPECT_THAT(peer.ReadAll(), EndsWith("GET / ")) << "after a request as well";
}

TEST_F(HttpTimeoutTest, SilenceInsideARequestEndsItWithAStatus) {
  EXPECT_THAT(Exchange("GET / HT"), StartsWith("HTTP/1.1 408 "));
  EXPECT_THAT(Exchange("POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\nbo"), StartsWith("HTTP/1.1 408 "));
}

}  // namespace
}  // namespace CryptStand

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/stand/http_fixture.h"

namespace CryptStand {
namespace {

using std::chrono::steady_clock;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST_F(HttpWireTest, HeadHasTheLengthAndNoBody) {
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send("HEAD / HTTP/1.1\r\n\r\n"));
  EXPECT_THAT(peer.ReadUntil("\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("Content-Length: 7\r\n")));
  ASSERT_TRUE(peer.Send(kLastGet));
  EXPECT_THAT(peer.ReadAll(), StartsWith("HTTP/1.1 200 ")) << "nothing stands between the two";
}

TEST_F(HttpWireTest, HeadOfAStreamedBodyHasNoBody) {
  RespondWith(Streamed(2, 10));
  const std::string response = Exchange("HEAD / HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_THAT(response, AllOf(HasSubstr("Transfer-Encoding: chunked\r\n"), EndsWith("\r\n\r\n")));
}

TEST_F(HttpWireTest, ClosesWhenAskedTo) {
  EXPECT_THAT(Exchange(kLastGet), HasSubstr("Connection: close\r\n"));
  EXPECT_THAT(Exchange("GET / HTTP/1.0\r\n\r\n"), EndsWith("GET / "));
}

TEST_F(HttpWireTest, AnOldClientGetsAStreamedBodyWithoutChunks) {
  RespondWith(Streamed(2, 10));
  const std::string response = Exchange("GET / HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
  EXPECT_THAT(response, Not(HasSubstr("chunked")));
  EXPECT_EQ(BodyOf(response), std::string(20, 'x'));
}

TEST_F(HttpWireTest, StreamsBodiesInChunks) {
  RespondWith(Streamed(2, 10));
  EXPECT_EQ(BodyOf(Exchange(kLastGet)), "a\r\nxxxxxxxxxx\r\na\r\nxxxxxxxxxx\r\n0\r\n\r\n");
}

TEST_F(HttpWireTest, AddsNoHeadersOfItsOwn) {
  RespondWith(HttpReply());
  EXPECT_EQ(
      Exchange(kLastGet),
      "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
}

TEST_F(HttpWireTest, LeavesOutHeadersWithLineBreaks) {
  HttpReply reply;
  reply.headers = {{"X-Good", "1"}, {"X-Bad", "1\r\nInjected: 2"}, {"X-Bad\r\nInjected", "2"}};
  reply.contentType = "text/html\r\nInjected: 2";
  RespondWith(reply);
  EXPECT_THAT(Exchange(kLastGet),
              AllOf(HasSubstr("X-Good: 1\r\n"), Not(HasSubstr("Bad")), Not(HasSubstr("Injected"))));
}

TEST_F(HttpWireTest, StatusesWithoutABodyHaveNone) {
  for (const int status : {204, 304}) {
    HttpReply reply;
    reply.status = status;
    reply.body = "body";
    RespondWith(reply);
    const std::string responses = Exchange(std::string(kGet) + kLastGet);
    EXPECT_THAT(responses, Not(HasSubstr("body"))) << status;
    EXPECT_NE(responses.find("HTTP/1.1 " + std::to_string(status), 1), std::string::npos)
        << "the connection is kept: " << responses;
  }
}

TEST_F(HttpWireTest, AnInterimStatusEndsTheConnection) {
  HttpReply reply;
  reply.status = 102;
  RespondWith(reply);
  EXPECT_THAT(Exchange(kGet), AllOf(StartsWith("HTTP/1.1 102 "), EndsWith("\r\n\r\n")));
}

TEST_F(HttpWireTest, CutsABodyAfterSoManyBytes) {
  for (const std::size_t cut : {0U, 1U, 999U, 1000U, 2000U}) {
    HttpReply reply;
    reply.body = std::string(1000, 'x');
    reply.cutAfter = cut;
    RespondWith(reply);
    const std::string response = Exchange(kGet);
    EXPECT_THAT(response, HasSubstr("Content-Length: 1000\r\n")) << cut;
    EXPECT_EQ(BodyOf(response), std::string(std::min<std::size_t>(cut, 1000), 'x')) << cut;
  }
}

TEST_F(HttpWireTest, CutsAStreamedBodyInsideAChunk) {
  const struct {
    std::size_t cut;
    std::string body;
  } rows[] = {
      {0, "a\r\n"},
      {4, "a\r\nxxxx"},
      {10, "a\r\nxxxxxxxxxx"},
      {11, "a\r\nxxxxxxxxxx\r\na\r\nx"},
      {99, "a\r\nxxxxxxxxxx\r\na\r\nxxxxxxxxxx\r\n"},
  };
  for (const auto& row : rows) {
    HttpReply reply = Streamed(2, 10);
    reply.cutAfter = row.cut;
    RespondWith(reply);
    EXPECT_EQ(BodyOf(Exchange(kGet)), row.body) << row.cut;
  }
}

TEST_F(HttpWireTest, AFailureWithinAStreamedBodyLeavesItWithoutAnEnd) {
  HttpReply reply;
  reply.openBody = [] {
    return [isFirst = true]() mutable {
      if (!std::exchange(isFirst, false)) throw std::runtime_error("no more");
      return std::string("first");
    };
  };
  RespondWith(reply);
  EXPECT_EQ(BodyOf(Exchange(kGet)), "5\r\nfirst\r\n");
  EXPECT_EQ(Get(Url()).status, 0);
}

TEST_F(HttpWireTest, AFailureOfAHandlerEndsItsConnectionAlone) {
  handler_ = [](const HttpRequest& request, const std::stop_token&) {
    if (request.target == "/fail") throw std::runtime_error("failed");
    return HttpReply();
  };
  EXPECT_EQ(Exchange("GET /fail HTTP/1.1\r\n\r\n"), "");
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpWireTest, SendsAStreamedBodyByteByByteWhenAsked) {
  HttpReply reply = Streamed(2, 2);
  reply.msPerByte = 1;
  RespondWith(reply);
  EXPECT_EQ(BodyOf(Exchange(kLastGet)), "1\r\nx\r\n1\r\nx\r\n1\r\nx\r\n1\r\nx\r\n0\r\n\r\n");
}

TEST_F(HttpWireTest, GoesDownWhileAStreamedBodyWaitsForData) {
  std::atomic<bool> isWaiting = false;
  handler_ = [&isWaiting](const HttpRequest&, const std::stop_token& stop) {
    HttpReply waiting;
    waiting.openBody = [&isWaiting, stop] {
      return [&isWaiting, stop] {
        isWaiting = true;
        while (!stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return std::string();
      };
    };
    return waiting;
  };
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send(kGet));
  while (!isWaiting) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const auto begin = steady_clock::now();
  server_.Down();
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(HttpWireTest, GoesDownWhileABodyIsStreamed) {
  RespondWith(Streamed(1000000, 65536));
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send(kGet));
  ASSERT_THAT(peer.ReadUntil("\r\n\r\n"), HasSubstr("chunked"));
  const auto begin = steady_clock::now();
  server_.Down();  // the server waits meanwhile for a client that does not read
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_THAT(peer.ReadAll(), Not(EndsWith("0\r\n\r\n")));
  RespondWith(HttpReply());
  std::string error;
  ASSERT_TRUE(server_.Up(error)) << error;
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpWireTest, OutlivesClientsThatLeaveInTheMiddle) {
  RespondWith(Streamed(64, 65536));
  for (int i = 0; i < 20; ++i) {
    RawPeer peer(server_.GetPort());
    ASSERT_TRUE(peer.Send(kGet));
    if (i % 2 == 0) peer.ReadUntil("\r\n\r\n");
  }
  EXPECT_EQ(Get(Url()).body.size(), 64U * 65536U);
}

class HttpSlowReaderTest : public HttpWireTest {
 protected:
  HttpSlowReaderTest() : HttpWireTest(HttpTimeouts{300, 300}) {}
};

TEST_F(HttpSlowReaderTest, AClientThatDoesNotReadIsGivenUp) {
  std::atomic<bool> hasEnded = false;
  HttpReply reply;
  // The source is destroyed with the response, that is when the server has given up.
  reply.openBody = [&hasEnded] {
    return [end = std::shared_ptr<void>(nullptr, [&hasEnded](void*) { hasEnded = true; })] {
      return std::string(65536, 'x');
    };
  };
  RespondWith(reply);
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send(kGet));
  const auto begin = steady_clock::now();
  while (!hasEnded && steady_clock::now() - begin < std::chrono::seconds(10)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(hasEnded);
}

}  // namespace
}  // namespace CryptStand

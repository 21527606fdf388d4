#include "stand/http.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "stand/socket.h"
#include "tests/stand/http_fixture.h"

namespace CryptStand {
namespace {

using Segments = std::vector<std::string>;

std::optional<Segments> SegmentsOf(const std::string& target) {
  HttpRequest request;
  request.target = target;
  return request.PathSegments();
}

TEST(HttpRequestTest, SplitsPathIntoUnescapedSegments) {
  const struct {
    const char* target;
    Segments segments;
    const char* reason;
  } rows[] = {
      {"/", {""}, "the root has one empty segment"},
      {"/a/b", {"a", "b"}, "plain"},
      {"/a//b/", {"a", "", "b", ""}, "empty segments stay"},
      {"/a%2Fb", {"a/b"}, "an escaped slash stays inside"},
      {"/%C3%A4%25?x=/y", {"\xC3\xA4%"}, "the query is no path, an escape is read once"},
      {"/a%0Ab", {"a\nb"}, "a line break is content"},
  };
  for (const auto& row : rows) EXPECT_EQ(SegmentsOf(row.target), row.segments) << row.reason;
}

TEST(HttpRequestTest, RefusesMalformedEscapes) {
  for (const char* target : {"/%", "/%4", "/%G0", "/a%2", "/%2/"}) {
    EXPECT_EQ(SegmentsOf(target), std::nullopt) << target;
  }
}

TEST(HttpRequestTest, FindsHeadersWhateverTheirCase) {
  HttpRequest request;
  request.headers = {{"X-One", "1"}, {"x-one", "2"}, {"X-On", "3"}};
  EXPECT_EQ(request.HeaderValues("x-ONE"), (Segments{"1", "2"}));
}

TEST_F(HttpServerTest, HandsRequestsToItsHandler) {
  EXPECT_EQ(Get(Url("/a%20b?c")).body, "GET /a%20b?c ");
  EXPECT_EQ(Post(Url("/"), "text").body, "POST / text");
}

TEST_F(HttpServerTest, HandsEveryMethodToItsHandler) {
  for (const char* method : {"GET", "PUT", "PATCH", "DELETE", "OPTIONS"}) {
    EXPECT_EQ(Send(method, Url()).body, std::string(method) + " / ");
  }
}

TEST_F(HttpServerTest, ServesSeveralRequestsOnOneConnection) {
  Peer peer;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(peer.Send("GET", Url()).body, "GET / ");
}

TEST_F(HttpServerTest, ServesConnectionsAtTheSameTime) {
  Peer idle;
  ASSERT_EQ(idle.Send("GET", Url()).status, 200);
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpServerTest, RefusesConnectionsWhileDown) {
  server_.Down();
  EXPECT_FALSE(server_.IsUp());
  EXPECT_TRUE(Get(Url()).isRefused);
}

TEST_F(HttpServerTest, ComesBackOnItsPort) {
  const int port = server_.GetPort();
  std::string error;
  for (int i = 0; i < 3; ++i) {
    server_.Down();
    ASSERT_TRUE(server_.Up(error)) << error;
    EXPECT_EQ(server_.GetPort(), port);
    EXPECT_EQ(Get(Url()).status, 200);
  }
}

TEST_F(HttpServerTest, MayBeBroughtUpTwice) {
  std::string error;
  EXPECT_TRUE(server_.Up(error));
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpServerTest, EndsIdleConnectionsAtOnceWhenItGoesDown) {
  Peer peer;
  ASSERT_EQ(peer.Send("GET", Url()).status, 200);
  const auto begin = std::chrono::steady_clock::now();
  server_.Down();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(peer.Send("GET", Url()).status, 0);
}

TEST_F(HttpServerTest, AsksHandlersToStopWhenItGoesDown) {
  std::atomic<bool> entered = false;
  handler_ = [&entered](const HttpRequest&, const std::stop_token& stop) {
    entered = true;
    while (!stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return HttpReply();
  };
  std::thread client([this] { EXPECT_EQ(Get(Url()).status, 0); });
  while (!entered) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  server_.Down();
  client.join();
}

TEST_F(HttpServerTest, KeepsItsPortFromOthersWhileDown) {
  server_.Down();
  const int other = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(server_.GetPort()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_NE(bind(other, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(other);
}

TEST_F(HttpServerTest, CannotBindPortThatIsServed) {
  HttpServer second([](const HttpRequest&, const std::stop_token&) { return HttpReply(); });
  std::string error;
  EXPECT_FALSE(second.Bind("127.0.0.1", server_.GetPort(), error));
  EXPECT_THAT(error, testing::HasSubstr("port " + std::to_string(server_.GetPort())));
}

TEST_F(HttpServerTest, CutsTheConnectionInsideTheBody) {
  handler_ = [](const HttpRequest&, const std::stop_token&) {
    HttpReply reply;
    reply.body = std::string(1000, 'x');
    reply.cutAfter = 100;
    return reply;
  };
  const Reply reply = Get(Url());
  EXPECT_EQ(reply.status, 0);
  EXPECT_EQ(reply.body, std::string(100, 'x'));
}

TEST_F(HttpServerTest, ServesAnIPv6Address) {
  HttpServer second([](const HttpRequest&, const std::stop_token&) { return HttpReply(); });
  std::string error;
  ASSERT_TRUE(second.Bind("::1", 0, error) && second.Up(error)) << error;
  const std::string port = std::to_string(second.GetPort());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Get("http://[::1]:" + port + "/").status, 200);
    EXPECT_TRUE(Get("http://127.0.0.1:" + port + "/").isRefused);
    second.Down();
    EXPECT_TRUE(Get("http://[::1]:" + port + "/").isRefused);
    ASSERT_TRUE(second.Up(error)) << error;
  }
}

TEST_F(HttpServerTest, SaysThatAnAddressIsNone) {
  HttpServer second([](const HttpRequest&, const std::stop_token&) { return HttpReply(); });
  std::string error;
  EXPECT_FALSE(second.Bind("localhost", 0, error));
  EXPECT_EQ(error, "localhost: not an IP address");
}

TEST(SocketTest, KnowsLoopbackAddresses) {
  for (const char* address : {"127.0.0.1", "127.1.2.3", "::1"}) EXPECT_TRUE(IsLoopbackAddress(address));
  for (const char* address : {"0.0.0.0", "::", "192.0.2.1", "128.0.0.1", "localhost", "::ffff:127.0.0.1"}) {
    EXPECT_FALSE(IsLoopbackAddress(address)) << address;
  }
}

TEST_F(HttpServerTest, IsReachedThroughLoopbackAlone) {
  EXPECT_TRUE(Get("http://127.0.0.2:" + std::to_string(server_.GetPort()) + "/").isRefused);
}

TEST_F(HttpServerTest, RefusesHugeBodies) {
  EXPECT_EQ(Post(Url(), std::string(17U << 20U, 'x')).status, 413);
}

}  // namespace
}  // namespace CryptStand

#include "stand/http.h"

#include <arpa/inet.h>
#include <chrono>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "tests/stand/standpeer.h"

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

class HttpServerTest : public testing::Test {
 protected:
  HttpServerTest()
      : server_([this](const HttpRequest& request, const std::stop_token& stop) {
          return handler_(request, stop);
        }) {}

  void SetUp() override {
    std::string error;
    ASSERT_TRUE(server_.Bind(0, error) && server_.Up(error)) << error;
  }
  std::string Url(const std::string& path = "/") const {
    return "http://127.0.0.1:" + std::to_string(server_.GetPort()) + path;
  }

  HttpHandler handler_ = [](const HttpRequest& request, const std::stop_token&) {
    HttpReply reply;
    reply.body = request.method + " " + request.target + " " + request.body;
    return reply;
  };
  HttpServer server_;
};

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
  httplib::Client client("127.0.0.1", server_.GetPort());
  client.set_keep_alive(true);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(client.Get("/")->body, "GET / ");
}

TEST_F(HttpServerTest, ServesConnectionsAtTheSameTime) {
  httplib::Client idle("127.0.0.1", server_.GetPort());
  idle.set_keep_alive(true);
  ASSERT_TRUE(idle.Get("/"));
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpServerTest, RefusesConnectionsWhileDown) {
  server_.Down();
  EXPECT_FALSE(server_.IsUp());
  httplib::Client client("127.0.0.1", server_.GetPort());
  const auto result = client.Get("/");
  EXPECT_EQ(result.error(), httplib::Error::Connection);
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

TEST_F(HttpServerTest, IsUpTwiceWithoutHarm) {
  std::string error;
  EXPECT_TRUE(server_.Up(error));
  EXPECT_EQ(Get(Url()).status, 200);
}

TEST_F(HttpServerTest, EndsIdleConnectionsAtOnceWhenItGoesDown) {
  httplib::Client client("127.0.0.1", server_.GetPort());
  client.set_keep_alive(true);
  ASSERT_TRUE(client.Get("/"));
  const auto begin = std::chrono::steady_clock::now();
  server_.Down();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_FALSE(client.Get("/"));
}

TEST_F(HttpServerTest, TellsHandlersToStopWhenItGoesDown) {
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
  EXPECT_FALSE(second.Bind(server_.GetPort(), error));
  EXPECT_THAT(error, testing::HasSubstr("port " + std::to_string(server_.GetPort())));
}

TEST_F(HttpServerTest, CutsTheConnectionInsideTheBody) {
  handler_ = [](const HttpRequest&, const std::stop_token&) {
    HttpReply reply;
    reply.body = std::string(1000, 'x');
    reply.cutAfter = 100;
    return reply;
  };
  std::string received;
  httplib::Client client("127.0.0.1", server_.GetPort());
  const auto result = client.Get("/", [&received](const char* data, std::size_t size) {
    received.append(data, size);
    return true;
  });
  EXPECT_FALSE(result);
  EXPECT_EQ(received.size(), 100U);
}

TEST_F(HttpServerTest, IsReachedThroughLoopbackAlone) {
  httplib::Client client("127.0.0.2", server_.GetPort());
  EXPECT_EQ(client.Get("/").error(), httplib::Error::Connection);
}

TEST_F(HttpServerTest, RefusesHugeBodies) {
  EXPECT_EQ(Post(Url(), std::string(17U << 20U, 'x')).status, 413);
}

TEST_F(HttpServerTest, AnswersNonsenseWithBadRequest) {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(server_.GetPort()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const std::string nonsense = "nonsense\r\n\r\n";
  ASSERT_EQ(write(client, nonsense.data(), nonsense.size()), static_cast<ssize_t>(nonsense.size()));
  char buffer[64] = {};
  ASSERT_GT(read(client, buffer, sizeof buffer - 1), 0);
  EXPECT_THAT(buffer, testing::StartsWith("HTTP/1.1 400"));
  close(client);
}

}  // namespace
}  // namespace CryptStand

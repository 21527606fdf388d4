// Which connections CryptClientCurl opens and keeps.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

RawServer::Handler Echo() {
  return RespondToAll([](RawConnection& connection, const RecordedRequest& request) {
    connection.Respond(200, request.body);
  });
}

TEST(CurlConnections, OneConnectionServesManyRequests) {
  RawServer server(Echo());
  const auto http = MakeCurl();
  for (const char* body : {"1", "2", "3"}) EXPECT_EQ(Send(*http, server.Url("/"), Post(body)).body, body);
  EXPECT_EQ(Send(*http, server.Url("/")).status, 200U);
  EXPECT_EQ(server.GetConnectionCount(), 1U);
}

TEST(CurlConnections, EachServerKeepsItsConnection) {
  RawServer first(Echo());
  RawServer second(Echo());
  const auto http = MakeCurl();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Send(*http, first.Url("/"), Post("a")).body, "a");
    EXPECT_EQ(Send(*http, second.Url("/"), Post("b")).body, "b");
  }
  EXPECT_EQ(first.GetConnectionCount(), 1U);
  EXPECT_EQ(second.GetConnectionCount(), 1U);
}

TEST(CurlConnections, AnErrorStatusDoesNotCostTheConnection) {
  RawServer server(RespondToAll([](RawConnection& c, const RecordedRequest&) { c.Respond(500, "no"); }));
  const auto http = MakeCurl();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Send(*http, server.Url("/")).status, 500U);
  EXPECT_EQ(server.GetConnectionCount(), 1U);
}

TEST(CurlConnections, AConnectionThatFailedIsNotUsedAgain) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    while (connection.ReadRequest(request)) {
      if (connection.GetIndex() > 0) connection.Respond(200, "fine");  // the first one gets no response
    }
  });
  const auto http = MakeCurl();
  EXPECT_LT(Send(*http, server.Url("/"), {.totalTimeout = 50}).result, 0);
  EXPECT_EQ(Send(*http, server.Url("/")).body, "fine");
}

TEST(CurlConnections, WithoutIdleHandlesEachRequestHasItsOwn) {
  RawServer server(Echo());
  OruKalvix::CryptClientCurlOptions options;
  options.maxIdleHandles = 0;
  const auto http = MakeCurl(options);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Send(*http, server.Url("/")).status, 200U);
  EXPECT_EQ(server.GetConnectionCount(), 3U);
}

/// A server that responds only when `parties` requests are in progress at once.
class Rendezvous {
 public:
  explicit Rendezvous(int parties) : parties_(parties) {}

  std::size_t Connections() const { return server_.GetConnectionCount(); }
  /// Sends this many requests at the same time.
  void Run(OruKalvix::ICryptClientHttp& http) {
    std::vector<std::thread> threads;
    for (int i = 0; i < parties_; ++i) {
      threads.emplace_back([&] { EXPECT_EQ(Send(http, server_.Url("/")).body, "met"); });
    }
    for (std::thread& thread : threads) thread.join();
  }

 private:
  void Meet() {
    std::unique_lock lock(mutex_);
    const int round = arrived_++ / parties_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return arrived_ >= (round + 1) * parties_; });
  }

  const int parties_;
  int arrived_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  RawServer server_{RespondToAll([this](RawConnection& connection, const RecordedRequest&) {
    Meet();
    connection.Respond(200, "met");
  })};
};

TEST(CurlConnections, ThreadsAtOnceHaveConnectionsOfTheirOwnAndKeepThem) {
  Rendezvous meeting(3);
  const auto http = MakeCurl();
  meeting.Run(*http);
  meeting.Run(*http);
  EXPECT_EQ(meeting.Connections(), 3U);
}

TEST(CurlConnections, NoMoreAreKeptThanTheOptionsAllow) {
  Rendezvous meeting(3);
  OruKalvix::CryptClientCurlOptions options;
  options.maxIdleHandles = 1;
  const auto http = MakeCurl(options);
  meeting.Run(*http);
  meeting.Run(*http);
  EXPECT_EQ(meeting.Connections(), 5U);  // three, one of them kept, and two new ones
}

TEST(CurlConnections, TheLastReferenceClosesThem) {
  std::atomic<bool> ended{false};
  RawServer server([&](RawConnection& connection) {
    RecordedRequest request;
    while (connection.ReadRequest(request)) connection.Respond(200, "");
    ended = true;
  });
  auto http = MakeCurl();
  http->AddRef();
  Send(*http, server.Url("/"));
  OruKalvix::CryptClientCurl* const held = http.get();
  http.reset();
  EXPECT_EQ(Send(*held, server.Url("/")).status, 200U);
  EXPECT_FALSE(ended);
  held->Release();
  for (int i = 0; i < 500 && !ended; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace TestSupport

// When CryptClientCurl sends a request a second time, and when it must not.
#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A server that responds to the first request of its first connection, breaks that connection during the
/// second request in a given way, and responds to all requests on later ones. It records the bodies that it
/// read completely.
class BreakingServer {
 public:
  using Break = std::function<void(BreakingServer& server, RawConnection& connection)>;

  explicit BreakingServer(Break how) : break_(std::move(how)) {}

  std::string Url() const { return server_.Url("/"); }
  std::vector<std::string> GetBodies() {
    const std::lock_guard lock(mutex_);
    return bodies_;
  }
  bool Read(RawConnection& connection) {
    RecordedRequest request;
    if (!connection.ReadRequest(request)) return false;
    const std::lock_guard lock(mutex_);
    bodies_.push_back(request.method + " " + request.body);
    return true;
  }

 private:
  void Serve(RawConnection& connection) {
    if (connection.GetIndex() == 0) {
      if (Read(connection)) connection.Respond(200, "first");
      return break_(*this, connection);
    }
    while (Read(connection)) connection.Respond(200, "again");
  }

  Break break_;
  std::mutex mutex_;
  std::vector<std::string> bodies_;
  RawServer server_{[this](RawConnection& connection) { Serve(connection); }};
};

void CloseAfterReading(BreakingServer& server, RawConnection& connection) {
  server.Read(connection);
  connection.Close();
}
void ResetAfterReading(BreakingServer& server, RawConnection& connection) {
  server.Read(connection);
  connection.Reset();
}
void ResetAfterTheHead(BreakingServer&, RawConnection& connection) {
  RecordedRequest request;
  connection.ReadHead(request);
  connection.Reset();
}
void CloseAtOnce(BreakingServer&, RawConnection& connection) {
  connection.Close();
}

TEST(CurlRepeat, AGetIsSentAgainWhenItsKeptConnectionCloses) {
  for (const auto& how : {CloseAfterReading, ResetAfterReading}) {
    BreakingServer server(how);
    const auto http = MakeCurl();
    ASSERT_EQ(Send(*http, server.Url()).body, "first");
    EXPECT_EQ(Send(*http, server.Url()).body, "again");
    EXPECT_THAT(server.GetBodies(), ElementsAre("GET ", "GET ", "GET "));
  }
}

TEST(CurlRepeat, APostThatWasSentWholeIsNotSentAgain) {
  for (const auto& how : {CloseAfterReading, ResetAfterReading}) {
    BreakingServer server(how);
    const auto http = MakeCurl();
    ASSERT_EQ(Send(*http, server.Url(), Post("1")).body, "first");
    const Outcome outcome = Send(*http, server.Url(), Post("2"));
    EXPECT_LT(outcome.result, 0);
    EXPECT_THAT(outcome.errorText, HasSubstr("may have been carried out and was not repeated"));
    EXPECT_THAT(server.GetBodies(), ElementsAre("POST 1", "POST 2"));
  }
}

TEST(CurlRepeat, APostThatWasNotSentWholeIsSentAgain) {
  BreakingServer server(ResetAfterTheHead);
  const auto http = MakeCurl();
  const std::string large(std::size_t{64} << 20U, 'x');  // larger than the buffers of both sockets
  ASSERT_EQ(Send(*http, server.Url(), Post("1")).body, "first");
  EXPECT_EQ(Send(*http, server.Url(), Post(large)).body, "again");
  EXPECT_THAT(server.GetBodies(), ElementsAre("POST 1", "POST " + large));
}

TEST(CurlRepeat, APostOnAConnectionThatHasClosedMeanwhileTakesANewOne) {
  BreakingServer server(CloseAtOnce);
  const auto http = MakeCurl();
  ASSERT_EQ(Send(*http, server.Url(), Post("1")).body, "first");
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // until the client has seen the end
  EXPECT_EQ(Send(*http, server.Url(), Post("2")).body, "again");
}

TEST(CurlRepeat, APostWithoutABodyTakesANewConnection) {
  BreakingServer server(CloseAfterReading);
  const auto http = MakeCurl();
  ASSERT_EQ(Send(*http, server.Url(), Post("1")).body, "first");
  EXPECT_EQ(Send(*http, server.Url(), Post("")).body, "again");
  EXPECT_THAT(server.GetBodies(), ElementsAre("POST 1", "POST "));
}

TEST(CurlRepeat, ARequestOnANewConnectionIsSentOnce) {
  for (const Ask& ask : {Ask{}, Post("1")}) {
    std::atomic<int> count{0};
    RawServer server([&](RawConnection& connection) {
      RecordedRequest request;
      if (connection.ReadRequest(request)) ++count;
      connection.Close();
    });
    EXPECT_LT(Send(*MakeCurl(), server.Url("/"), ask).result, 0);
    EXPECT_EQ(count, 1);
  }
}

TEST(CurlRepeat, AGetIsSentAgainOnlyOnce) {
  std::atomic<int> count{0};
  RawServer server([&](RawConnection& connection) {
    RecordedRequest request;
    while (connection.ReadRequest(request)) {
      if (++count > 1) return connection.Close();
      connection.Respond(200, "first");
    }
  });
  const auto http = MakeCurl();
  ASSERT_EQ(Send(*http, server.Url("/")).body, "first");
  EXPECT_LT(Send(*http, server.Url("/")).result, 0);
  EXPECT_EQ(count, 3);
}

TEST(CurlRepeat, AResponseThatHadBegunIsNotAskedForAgain) {
  BreakingServer server([](BreakingServer& self, RawConnection& connection) {
    self.Read(connection);
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    connection.Close();
  });
  const auto http = MakeCurl();
  ASSERT_EQ(Send(*http, server.Url()).body, "first");
  EXPECT_LT(Send(*http, server.Url()).result, 0);
  EXPECT_THAT(server.GetBodies(), ElementsAre("GET ", "GET "));
}

}  // namespace
}  // namespace TestSupport

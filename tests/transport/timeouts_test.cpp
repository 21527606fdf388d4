#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "foundation/threadobserver.h"
#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace std::chrono_literals;

/// A server that reads everything and never responds.
void StaySilent(RawConnection& connection) {
  connection.WaitForEnd();
}

RawServer::Handler RespondAfter(std::chrono::milliseconds delay) {
  return RespondToAll([delay](RawConnection& connection, const RecordedRequest&) {
    std::this_thread::sleep_for(delay);
    connection.Respond(200, "late");
  });
}

TEST(CurlTimeouts, TheLastTimeoutEndsAWaitForAResponse) {
  RawServer server(StaySilent);
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"), {.totalTimeout = 100});
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Gave up waiting for " + server.Authority()));
}

/// An observer that has cancelled from the start.
class CancelledThread final : public OruGuiBase::IThreadObserver {
 public:
  CancelledThread() : before_(OruGuiBase::SetThreadObserver(this)) {}
  CancelledThread(const CancelledThread&) = delete;
  CancelledThread& operator=(const CancelledThread&) = delete;
  ~CancelledThread() { OruGuiBase::SetThreadObserver(before_); }

  std::uint32_t GetTraceLevel() const noexcept override { return 0; }
  bool WantsBodies() const noexcept override { return false; }
  void OnTrace(std::uint32_t, std::uint32_t, const char*, std::uint32_t, const char*) noexcept override {}
  void OnRead(std::uint64_t) noexcept override {}
  bool IsCancelled() noexcept override { return true; }
  const char* GetTemporaryDirectory() const noexcept override { return nullptr; }

 private:
  OruGuiBase::IThreadObserver* before_;
};

TEST(CurlTimeouts, ACancelledExchangeSaysSo) {
  RawServer server(StaySilent);
  const CancelledThread cancelled;
  EXPECT_EQ(Send(*MakeCurl(), server.Url("/")).errorText,
            "Cancelled while waiting for " + server.Authority());
}

TEST(CurlTimeouts, TheLastTimeoutEndsAResponseThatTrickles) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.Send("x")) std::this_thread::sleep_for(10ms);
  });
  EXPECT_LT(Send(*MakeCurl(), server.Url("/"), {.totalTimeout = 150}).result, 0);
}

TEST(CurlTimeouts, AResponseInTimeSucceeds) {
  RawServer server(RespondAfter(20ms));
  EXPECT_EQ(Send(*MakeCurl(), server.Url("/"), {.connectTimeout = 5000, .totalTimeout = 5000}).body, "late");
}

TEST(CurlTimeouts, TheFirstTimeoutDoesNotBoundTheResponse) {
  RawServer server(RespondAfter(300ms));
  EXPECT_EQ(Send(*MakeCurl(), server.Url("/"), {.connectTimeout = 150}).body, "late");
}

TEST(CurlTimeouts, WithoutTimeoutsTheirValuesDoNotCount) {
  RawServer server(RespondAfter(100ms));
  OruKalvix::HttpOptions options;
  options.timeouts[0] = options.timeouts[1] = options.timeouts[2] = 1;
  OruKalvix::HttpResponse response;
  EXPECT_GE(MakeCurl()->SendRequest("GET", Ansi(server.Url("/")), {}, "", options, response), 0);
}

TEST(CurlTimeouts, ATimeoutOfZeroSetsNoLimit) {
  RawServer server(RespondAfter(100ms));
  OruKalvix::HttpOptions options;
  options.useTimeouts = true;
  OruKalvix::HttpResponse response;
  EXPECT_GE(MakeCurl()->SendRequest("GET", Ansi(server.Url("/")), {}, "", options, response), 0);
}

TEST(CurlTimeouts, ATimeoutAboveTheRangeOfLibcurlIsCapped) {
  RawServer server(RespondAfter(0ms));
  const Ask ask{.connectTimeout = 0xFFFFFFFF, .totalTimeout = 0xFFFFFFFF};
  EXPECT_EQ(Send(*MakeCurl(), server.Url("/"), ask).body, "late");
}

TEST(CurlTimeouts, TheFirstTimeoutBoundsTheTLSHandshake) {
  RawServer server(StaySilent);
  const std::string url = "https://" + server.Authority() + "/";
  const Outcome outcome = Send(*MakeCurl(), url, {.connectTimeout = 100});
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Could not connect to " + server.Authority()));
}

/// A loopback port whose queue of connections is full, so that a further one is not accepted.
class FullPort {
 public:
  FullPort() {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address_);
    EXPECT_EQ(bind(listener_, Generic(), size), 0);
    EXPECT_EQ(listen(listener_, 0), 0);
    EXPECT_EQ(getsockname(listener_, Generic(), &size), 0);
    for (int i = 0; i < 4; ++i) {
      waiting_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      static_cast<void>(connect(waiting_.back(), Generic(), size));  // all but the first stay in progress
    }
  }
  FullPort(const FullPort&) = delete;
  FullPort& operator=(const FullPort&) = delete;
  ~FullPort() {
    for (const int socket : waiting_) close(socket);
    close(listener_);
  }

  std::string Authority() const { return "127.0.0.1:" + std::to_string(ntohs(address_.sin_port)); }

 private:
  sockaddr* Generic() { return reinterpret_cast<sockaddr*>(&address_); }

  int listener_ = -1;
  sockaddr_in address_{};
  std::vector<int> waiting_;
};

TEST(CurlTimeouts, TheFirstTimeoutBoundsConnecting) {
  const FullPort port;
  const Outcome outcome = Send(*MakeCurl(), "http://" + port.Authority() + "/", {.connectTimeout = 100});
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Could not connect to " + port.Authority()));
}

TEST(CurlTimeouts, AStandstillEndsAnExchangeWithoutTimeouts) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nsome");
    connection.WaitForEnd();
  });
  OruKalvix::CryptClientCurlOptions options;
  options.stallSeconds = 1;
  const Outcome outcome = Send(*MakeCurl(options), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("too slow"));
}

}  // namespace
}  // namespace TestSupport

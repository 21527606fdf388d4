// One transport, many threads; also run under ThreadSanitizer.
#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 40;

RawServer::Handler Echo() {
  return RespondToAll([](RawConnection& connection, const RecordedRequest& request) {
    connection.Respond(200, request.body, "X-Echo: " + HeaderOf(request, "X-Ask") + "\r\n");
  });
}

template <class Work>
void RunThreads(Work work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

TEST(CurlThreads, EachGetsItsOwnResponse) {
  RawServer server(Echo());
  const auto http = MakeCurl();
  RunThreads([&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const std::string text = std::to_string(thread) + "/" + std::to_string(round);
      Ask ask = Post(text);
      ask.headers = {{"X-Ask", text}};
      const Outcome outcome = Send(*http, server.Url("/"), ask);
      EXPECT_EQ(outcome.body, text);
      EXPECT_THAT(outcome.headers, ::testing::Contains(::testing::Pair("X-Echo", text)));
    }
  });
  EXPECT_LE(server.GetConnectionCount(), static_cast<std::size_t>(kThreads));
}

TEST(CurlThreads, FailuresOfOneDoNotTouchTheOthers) {
  RawServer server(Echo());
  const auto http = MakeCurl();
  const std::string down = "http://127.0.0.1:" + std::to_string(UnusedPort()) + "/";
  RunThreads([&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      if (thread % 2 == 0) {
        EXPECT_LT(Send(*http, down).result, 0);
      } else {
        EXPECT_EQ(Send(*http, server.Url("/"), Post("x")).body, "x");
      }
    }
  });
}

TEST(CurlThreads, ReferencesAreCountedAcrossThreads) {
  RawServer server(Echo());
  auto http = MakeCurl();
  OruKalvix::CryptClientCurl* const shared = http.get();
  for (int i = 0; i < kThreads; ++i) shared->AddRef();
  http.reset();
  RunThreads([&](int) {
    EXPECT_EQ(Send(*shared, server.Url("/"), Post("x")).body, "x");
    shared->Release();
  });
}

TEST(CurlThreads, TransportsAreMadeAtOnce) {
  RawServer server(Echo());
  RunThreads([&](int) { EXPECT_EQ(Send(*MakeCurl(), server.Url("/"), Post("x")).body, "x"); });
}

TEST(CurlThreads, CredentialsAreAskedForOnTheSendingThread) {
  RawServer server(Echo());
  OruKalvix::CryptClientCurlOptions options;
  std::atomic<int> asked{0};
  options.serviceUrl = Ansi(server.Url(""));
  options.credentials = [&](const auto&, const auto&, OruGuiBase::KVMap& headers, auto&) {
    ++asked;
    return headers.Set("X-Ask",
                       Ansi(std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id()))));
  };
  const auto http = MakeCurl(options);
  RunThreads([&](int) {
    const std::string self = std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id()));
    EXPECT_THAT(Send(*http, server.Url("/")).headers, ::testing::Contains(::testing::Pair("X-Echo", self)));
  });
  EXPECT_EQ(asked, kThreads);
}

}  // namespace
}  // namespace TestSupport

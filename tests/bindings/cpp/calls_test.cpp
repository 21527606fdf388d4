#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "tests/bindings/cpp/cpp_fixture.h"

namespace CppInterface {
namespace {

using cryptcli::Status;
using ::testing::HasSubstr;

constexpr std::size_t kManyBytes = 3'000'000;

class Calls : public EnvironmentTest {
 protected:
  cryptcli::Result<cryptcli::Report> EncryptMany(const cryptcli::Call& call) {
    scratch.Make("plain", std::string(kManyBytes, 'p'));
    scratch.Make("secret", "as before");
    return client->Encrypt(kRoom, Path("plain"), Path("secret"), call);
  }
  void ExpectCancelled(const cryptcli::Result<cryptcli::Report>& result) {
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().code, Status::Cancelled) << result.error().message;
    EXPECT_EQ(scratch.Read("secret"), "as before");
  }
};

TEST_F(Calls, ProgressGrowsToTheSizeOfTheSource) {
  std::vector<std::uint64_t> steps;
  const auto made = EncryptMany({.progress = [&](std::uint64_t done, std::uint64_t total) {
    EXPECT_EQ(total, kManyBytes);
    steps.push_back(done);
    return true;
  }});
  ASSERT_TRUE(made.has_value()) << made.error().message;
  EXPECT_GT(steps.size(), 10U);
  EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
  EXPECT_EQ(steps.back(), kManyBytes);
}

TEST_F(Calls, ProgressCanCancel) {
  ExpectCancelled(
      EncryptMany({.progress = [](std::uint64_t done, std::uint64_t) { return done < 1'000'000; }}));
}

TEST_F(Calls, AnExceptionOfProgressCancelsAndIsReported) {
  const auto result = EncryptMany({.progress = [](std::uint64_t, std::uint64_t) -> bool {
    throw std::runtime_error("\"no\" \xFF window");
  }});
  ExpectCancelled(result);
  EXPECT_EQ(result.error().message, "The progress callable threw an exception: \"no\" ? window");
  EXPECT_THAT(result.error().json, HasSubstr(R"(threw an exception: \"no\" ? window")"));
  EXPECT_THAT(result.error().json, HasSubstr(R"("code":"cancelled")"));
}

TEST_F(Calls, AnExceptionOfAnyTypeCancels) {
  const auto result = EncryptMany({.progress = [](std::uint64_t, std::uint64_t) -> bool { throw 7; }});
  ExpectCancelled(result);
  EXPECT_EQ(result.error().message, "The progress callable threw an exception");
}

TEST_F(Calls, AStopThatWasRequestedBeforeCancels) {
  std::stop_source stop;
  stop.request_stop();
  ExpectCancelled(EncryptMany({.stop = stop.get_token()}));
}

TEST_F(Calls, AStopEndsAnExchangeThatWaits) {
  Protect("content");
  for (int server = 0; server < 3; ++server)
    ASSERT_TRUE(stand.SetFault(server, {.type = CryptStand::FaultType::Slow, .number = 60'000}));
  std::stop_source stop;
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    stop.request_stop();
  });
  const auto start = std::chrono::steady_clock::now();
  const auto opened = client->Decrypt(kRoom, Path("secret"), Path("opened"), {.stop = stop.get_token()});
  stopper.join();
  ASSERT_FALSE(opened.has_value());
  EXPECT_EQ(opened.error().code, Status::Cancelled) << opened.error().message;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_FALSE(scratch.Exists("opened"));
}

TEST_F(Calls, AStopAfterTheEndHasNoEffect) {
  std::stop_source stop;
  EXPECT_TRUE(EncryptMany({.stop = stop.get_token()}).has_value());
  EXPECT_TRUE(stop.request_stop());
}

TEST_F(Calls, AnUnknownPolicyIsRefused) {
  const auto result = EncryptMany({.accept = static_cast<cryptcli::Policy>(4)});
  ASSERT_FALSE(result.has_value());
  EXPECT_EQ(result.error().code, Status::InvalidArgument);
  EXPECT_EQ(scratch.Read("secret"), "as before");
}

TEST_F(Calls, ProgressMayMoveTheClientAway) {
  std::optional<cryptcli::Client> other;
  const auto result = EncryptMany({.progress = [&](std::uint64_t, std::uint64_t) {
    if (!other) other.emplace(*std::move(client));
    return true;
  }});
  EXPECT_TRUE(result.has_value());
  ASSERT_TRUE(other.has_value());
  EXPECT_TRUE(other->Verify(kRoom, Path("secret")).has_value());
}

}  // namespace
}  // namespace CppInterface

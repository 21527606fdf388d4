#include <atomic>
#include <chrono>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/bindings/cpp/cpp_fixture.h"

namespace CppInterface {
namespace {

using cryptcli::Client;
using cryptcli::LogLevel;
using cryptcli::Status;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

constexpr const char* kSomewhere = "https://crypt.example/api";
const std::string kWithNul("with\0nul", 8);

void ExpectRefused(cryptcli::Options options, const char* reason) {
  const auto made = Client::Create(std::move(options));
  ASSERT_FALSE(made.has_value()) << reason;
  EXPECT_EQ(made.error().code, Status::InvalidArgument);
  EXPECT_THAT(made.error().message, HasSubstr(reason));
  EXPECT_THAT(made.error().json, HasSubstr(R"("code":"invalid_argument")"));
}

TEST(Options, NeedAService) {
  ExpectRefused({}, "No URL of the crypt service");
}

TEST(Options, RefuseStringsWithNul) {
  ExpectRefused({.service = kWithNul}, "The service's URL contains a NUL character");
  ExpectRefused({.service = kSomewhere, .caFile = kWithNul}, "The CA file's path contains");
  ExpectRefused({.service = kSomewhere, .clientCertificate = {.certificate = kWithNul}}, "contains a NUL");
  ExpectRefused({.service = kSomewhere, .clientCertificate = {.certificate = "a", .key = kWithNul}}, "a NUL");
  ExpectRefused({.service = kSomewhere, .proxy = kWithNul}, "The proxy's URL contains");
  ExpectRefused({.service = kSomewhere, .headers = {{"name", kWithNul}}}, "The header contains");
  ExpectRefused({.service = kSomewhere, .headers = {{kWithNul, "value"}}}, "The header contains");
  ExpectRefused({.service = kSomewhere, .temporaryDirectory = kWithNul}, "The temporary directory's path");
}

TEST(Options, RefuseTimeoutsThatCannotBe) {
  const milliseconds tooLong{std::int64_t{std::numeric_limits<std::uint32_t>::max()} + 1};
  for (const milliseconds timeout : {milliseconds(-1), tooLong}) {
    ExpectRefused({.service = kSomewhere, .timeout = timeout}, "The timeout is negative or too long");
    ExpectRefused({.service = kSomewhere, .connectTimeout = timeout}, "The timeout is negative or too long");
  }
}

TEST(Options, ReportTheFirstMistake) {
  ExpectRefused({.service = kWithNul, .proxy = kWithNul, .timeout = milliseconds(-1)}, "The service's URL");
}

TEST(Options, RefuseABrokenHeaderWithoutQuotingIt) {
  const auto made = Client::Create({.service = kSomewhere, .headers = {{"Authorization", "geheim\n"}}});
  ASSERT_FALSE(made.has_value());
  EXPECT_EQ(made.error().code, Status::InvalidArgument);
  EXPECT_EQ(made.error().json.find("geheim"), std::string::npos);
}

TEST(Options, AKeyNeedsItsCertificate) {
  ExpectRefused({.service = kSomewhere, .clientCertificate = {.key = "key.pem"}},
                "without a client certificate");
}

TEST(Options, ACertificateAuthorityFileHasToBeThere) {
  ExpectRefused({.service = kSomewhere, .caFile = "/missing.pem"}, "missing.pem");
}

TEST(Options, AnUnreadablePasswordFileIsAnInputError) {
  const auto made = Client::Create(
      {.service = kSomewhere, .clientCertificate = {.certificate = "a", .passwordFile = "/missing"}});
  ASSERT_FALSE(made.has_value());
  EXPECT_EQ(made.error().code, Status::Io);
}

TEST(Versions, AreThoseOfTheLibrary) {
  EXPECT_EQ(cryptcli::Version(), "1.0.0");
  EXPECT_THAT(cryptcli::BuildInfo(), HasSubstr(R"("cryptcli":"1.0.0")"));
  EXPECT_THAT(cryptcli::Operations(), HasSubstr(R"("name":"SignByKey")"));
}

// ---- A client and its lifetime

using Lifetime = EnvironmentTest;

TEST_F(Lifetime, AMovedClientWorksAndTheOldOneFails) {
  Protect("content");
  Client moved = std::move(*client);
  EXPECT_TRUE(moved.Verify(kRoom, Path("secret")).has_value());
  // Users can call a client that was moved from, and get an error: NOLINTBEGIN(bugprone-use-after-move)
  const auto failed = {client->Verify(kRoom, Path("secret")).error(),
                       client->Encrypt(kRoom, Path("plain"), Path("other")).error(),
                       client->Rekey(kRoom, Path("secret")).error(),
                       client->Perform("DeleteKey", "{}").error()};
  for (const cryptcli::Error& error : failed) EXPECT_EQ(error.code, Status::InvalidArgument) << error.message;
  *client = std::move(moved);
  EXPECT_TRUE(client->Verify(kRoom, Path("secret")).has_value());
  // NOLINTEND(bugprone-use-after-move)
}

TEST_F(Lifetime, OptionsMayEndBeforeTheClient) {
  Protect("content");
  {
    cryptcli::Options mine{.service = std::string(stand.GetServiceUrl()), .headers = {{"X-Mine", "value"}}};
    mine.log = {.level = LogLevel::Request,
                .write = [words = std::make_shared<std::string>()](LogLevel, std::string_view message) {
                  static std::mutex mutex;
                  const std::lock_guard lock(mutex);
                  *words += message;
                }};
    client.emplace(*Client::Create(std::move(mine)));
  }
  EXPECT_TRUE(client->Verify(kRoom, Path("secret")).has_value());
}

TEST_F(Lifetime, NamesWithNulAreRefusedBeforeAnythingIsAsked) {
  Protect("content");
  stand.ClearEvents();
  const auto failed = {
      client->Verify(kWithNul, Path("secret")).error(), client->Verify(kRoom, kWithNul).error(),
      client->Encrypt(kRoom, Path("plain"), kWithNul).error(), client->Perform(kWithNul, "{}").error(),
      client->Perform("DeleteKey", kWithNul).error()};
  for (const cryptcli::Error& error : failed) {
    EXPECT_EQ(error.code, Status::InvalidArgument);
    EXPECT_THAT(error.message, HasSubstr("contains a NUL character"));
  }
  EXPECT_TRUE(stand.GetEvents().empty());
}

// ---- The log

class LogOfAClient : public EnvironmentTest {
 protected:
  void ListenTo(LogLevel level, bool reveal) {
    options.log = {.level = level,
                   .write =
                       [this](LogLevel of, std::string_view message) {
                         EXPECT_LE(of, options.log.level);
                         words.append(message).append("\n");
                       },
                   .revealSecrets = reveal};
    MakeClient();
  }

  std::string words;
};

TEST_F(LogOfAClient, ShowsRequestsWithoutBodies) {
  ListenTo(LogLevel::Request, /*reveal=*/false);
  Protect("content");
  EXPECT_THAT(words, HasSubstr("GET " + stand.GetServiceUrl() + "crypt/key/demo"));
  EXPECT_EQ(words.find("authztoken\":"), std::string::npos);
}

TEST_F(LogOfAClient, RevealsSecretsOnRequestOnly) {
  ListenTo(LogLevel::Debug, /*reveal=*/false);
  Protect("content");
  EXPECT_EQ(words.find("authztoken\":"), std::string::npos);
  ListenTo(LogLevel::Debug, /*reveal=*/true);
  Protect("content");
  EXPECT_THAT(words, HasSubstr("authztoken\":"));
}

TEST_F(LogOfAClient, AnExceptionOfItDoesNotFailTheWork) {
  std::atomic<int> calls = 0;
  options.log = {.level = LogLevel::Debug, .write = [&](LogLevel, std::string_view) {
                   ++calls;
                   throw std::runtime_error("the disk of the log is full");
                 }};
  MakeClient();
  Protect("content");
  EXPECT_TRUE(client->Verify(kRoom, Path("secret")).has_value());
  EXPECT_GT(calls, 0);
}

}  // namespace
}  // namespace CppInterface

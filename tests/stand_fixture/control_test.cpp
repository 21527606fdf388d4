// The control interface as tests of other projects reach it.
#include <cryptstand/fixture.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace StandFixture {
namespace {

using cryptstand::ControlReply;
using cryptstand::Environment;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ControlTest : public cryptstand::Fixture {
 protected:
  cryptstand::Settings GetSettings() const override { return {.keyServers = 1}; }
  static std::string State() { return environment().Control("GET", "/stand/v1/state").body; }
};

TEST_F(ControlTest, ChangesTheEnvironment) {
  const ControlReply reply =
      environment().Control("POST", "/stand/v1/rooms", R"({"room":"caf\u00e9","locked":true})");
  ASSERT_TRUE(reply) << reply.Describe();
  EXPECT_THAT(State(), HasSubstr("caf\xC3\xA9"));
}

TEST_F(ControlTest, ReportsWhatIsRefused) {
  const ControlReply reply = environment().Control("POST", "/stand/v1/faults", R"({"servr":"0"})");
  EXPECT_FALSE(reply);
  EXPECT_EQ(reply.status, 400);
  EXPECT_THAT(reply.Describe(), HasSubstr("servr"));
  EXPECT_EQ(environment().Control("GET", "/stand/v1/no-such").status, 404);
}

TEST_F(ControlTest, ReceivesLongResponses) {
  for (int i = 0; i < 100; ++i) {
    const std::string room = R"({"room":")" + std::string(100, 'r') + std::to_string(i) + R"("})";
    ASSERT_TRUE(environment().Control("POST", "/stand/v1/rooms", room));
  }
  const std::string state = State();
  EXPECT_GT(state.size(), 10000U);
  EXPECT_THAT(state, testing::EndsWith("}"));
}

TEST_F(ControlTest, ResetBringsBackTheFirstState) {
  ASSERT_TRUE(environment().Control("POST", "/stand/v1/rooms", R"({"room":"another"})"));
  ASSERT_TRUE(environment().Reset()) << environment().GetError();
  EXPECT_THAT(State(), Not(HasSubstr("another")));
}

TEST_F(ControlTest, FixtureLeavesNothingToTheNextTest) {
  EXPECT_THAT(State(), Not(HasSubstr("caf")));
}

TEST(NoControlTest, FailsWithoutAProgram) {
  Environment environment;
  EXPECT_EQ(environment.Control("GET", "/stand/").Describe(), "The test environment is not running");
  EXPECT_FALSE(environment.Reset());
  EXPECT_EQ(environment.GetError(), "The test environment is not running");
}

// A program that reports HTTPS takes the place of the real one.
TEST(NoControlTest, StartsAnotherEnvironmentWhereItCannotReset) {
  const std::string program = testing::TempDir() + "https_" + std::to_string(getpid());
  std::ofstream(program)
      << "#!/bin/sh\necho '{\"service\":\"https://127.0.0.1:1/\"}' >\"$4\"\nexec cat >&2\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  Environment environment;
  ASSERT_TRUE(environment.Start({.program = program})) << environment.GetError();
  const std::string folder = environment.GetFolder();
  EXPECT_TRUE(environment.Reset()) << environment.GetError();
  EXPECT_TRUE(environment.IsRunning());
  EXPECT_NE(environment.GetFolder(), folder);
  std::filesystem::remove(program);
}

TEST(HttpExchangeTest, ReportsWhyThereIsNoResponse) {
  using cryptstand::detail::Exchange;
  EXPECT_THAT(Exchange("GET", "http://127.0.0.1:1/", "", "").error, HasSubstr("Connection refused"));
  EXPECT_THAT(Exchange("GET", "https://127.0.0.1:1/", "", "").error, StartsWith("Only http is supported"));
  EXPECT_THAT(Exchange("GET", "http://no address:1/", "", "").error, HasSubstr("Invalid argument"));
}

}  // namespace
}  // namespace StandFixture

#include <cryptstand/fixture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace StandFixture {
namespace {

// The fixture's environment is that of the whole program.
class FixtureTest : public cryptstand::Fixture {
 protected:
  cryptstand::Settings GetSettings() const override { return {.keyServers = 1, .rooms = {"mine"}}; }
};

TEST_F(FixtureTest, GivesARunningEnvironment) {
  EXPECT_THAT(environment().GetRooms(), testing::ElementsAre("mine"));
  EXPECT_TRUE(environment().IsRunning());
  environment().Stop();
}

TEST_F(FixtureTest, StartsANewOneAfterATestThatStoppedIt) {
  EXPECT_TRUE(environment().IsRunning());
  EXPECT_NE(environment().GetService(), "");
}

}  // namespace
}  // namespace StandFixture

// What a project writes to test its own code with the installed local test environment.
#include <cryptcli/cryptcli.hpp>
#include <cryptstand/fixture.h>
#include <cryptstand/replay.h>

class UploadTest : public cryptstand::Fixture {};

TEST_F(UploadTest, ProtectsTheFile) {
  auto client = cryptcli::Client::Create({.service = environment().GetService()});
  ASSERT_TRUE(client.has_value()) << client.error().message;
  std::string secret;
  std::string opened;
  auto made =
      client->Encrypt("demo", cryptcli::Source::FromMemory("bytes"), cryptcli::Target::ToMemory(secret));
  ASSERT_TRUE(made.has_value()) << made.error().message;
  auto report =
      client->Decrypt("demo", cryptcli::Source::FromMemory(secret), cryptcli::Target::ToMemory(opened));
  ASSERT_TRUE(report.has_value()) << report.error().message;
  EXPECT_EQ(opened, "bytes");
}

TEST(RecordedTest, ReproducesAFailureWithoutServers) {
  cryptstand::Environment environment;
  const std::string file = testing::TempDir() + "failure.jsonl";
  const bool isReady = environment.Start({.arguments = {"--record", file}});
  ASSERT_TRUE(isReady) << environment.GetError();
  auto client = cryptcli::Client::Create({.service = environment.GetService()});
  ASSERT_TRUE(client.has_value()) << client.error().message;
  const auto there = client->Room("nowhere");
  ASSERT_FALSE(there.has_value());
  environment.Stop();

  auto replay = cryptstand::Replay::Load(file);
  ASSERT_TRUE(replay.has_value()) << replay.error().message;
  client = cryptcli::Client::Create({.service = replay->GetService(), .transport = *replay});
  ASSERT_TRUE(client.has_value()) << client.error().message;
  const auto here = client->Room("nowhere");
  ASSERT_FALSE(here.has_value());
  EXPECT_EQ(here.error().message, there.error().message);
  std::filesystem::remove(file);
}

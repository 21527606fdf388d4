// What a project writes to test its own code with the installed local test environment.
#include <cryptcli/cryptcli.hpp>
#include <cryptstand/fixture.h>

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

#include "tools/resume.h"

#include <chrono>

#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

namespace fs = std::filesystem;
using CryptCli::FileItem;
using CryptCli::IsDone;
using CryptCli::NameRule;
using CryptCli::SourceState;

/// A source, and a protected file that was made from it later.
class Resume : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    Protect();
    SetAge("plain.txt", 10);
    SetAge("file.p7m", 5);
  }
  void SetAge(std::string_view name, int seconds) const {
    fs::last_write_time(scratch_.Path(name), now_ - std::chrono::seconds(seconds));
  }
  bool IsFileDone(NameRule rule = NameRule::AddSuffix, const char* room = "demo") const {
    return IsDone({Path("plain.txt"), "plain.txt", Path("file.p7m")}, rule, Ask(room));
  }
  Finished Encrypt(const std::string& room, const std::vector<std::string>& further) const {
    std::vector<std::string> all{"encrypt", "--service", stand_.GetServiceUrl(), "--room", room};
    all.insert(all.end(), further.begin(), further.end());
    return RunCommand(all);
  }
  CryptCli::Recipient Ask(const char* room) const {
    cryptcli::Options options;
    options.service = stand_.GetServiceUrl();
    const auto client = cryptcli::Client::Create(options);
    EXPECT_TRUE(client) << client.error().message;
    const auto found = CryptCli::FindRecipient(*client, room, {});
    EXPECT_TRUE(found) << found.error().message;
    return found.value_or(CryptCli::Recipient());
  }

  const fs::file_time_type now_ = fs::file_time_type::clock::now();
};

TEST_F(Resume, TakesANewerProtectedTargetForDone) {
  EXPECT_TRUE(IsFileDone());
}

TEST_F(Resume, DoesAFileAgainThatIsForAnotherRoom) {
  ASSERT_TRUE(stand_.AddRoom("resumed"));
  EXPECT_FALSE(IsFileDone(NameRule::AddSuffix, "resumed")) << "it has no key yet";
  ASSERT_EQ(Encrypt("resumed", {Path("plain.txt"), Path("other.p7m")}).code, 0);
  EXPECT_FALSE(IsFileDone(NameRule::AddSuffix, "resumed"));
  EXPECT_TRUE(IsFileDone());
}

TEST_F(Resume, RefusesResultsForAnotherRoom) {
  ASSERT_TRUE(stand_.AddRoom("resumed again"));
  fs::create_directory(scratch_.Path("out"));
  fs::rename(scratch_.Path("file.p7m"), scratch_.Path("out/plain.txt.p7m"));
  const std::vector<std::string> words{"--resume", "--output-dir", Path("out"), Path("plain.txt")};
  const Finished same = Run("encrypt", words);
  EXPECT_EQ(same.code, 0) << same.errors;
  EXPECT_EQ(same.output, "Encrypted 0 of 1 file, 1 done before\n");
  const Finished refused = Encrypt("resumed again", words);
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.errors, ::testing::HasSubstr("File exists (--force replaces it)"));
}

TEST_F(Resume, AsksTheServiceOnceAndOnlyForWhatIsThere) {
  const std::vector<std::string> words{"--resume", "--output-dir", Path("out"), Path("plain.txt")};
  const auto count = [&] {
    stand_.ClearEvents();
    EXPECT_EQ(Run("encrypt", words).code, 0);
    return stand_.GetEvents().size();
  };
  const std::size_t first = count();
  EXPECT_EQ(count(), 1U);
  fs::remove(scratch_.Path("out/plain.txt.p7m"));
  EXPECT_EQ(count(), first) << "as without --resume";
}

TEST_F(Resume, DoesAFileAgainWhoseSourceIsNewerOrAsOld) {
  SetAge("plain.txt", 5);
  EXPECT_FALSE(IsFileDone());
  SetAge("plain.txt", 1);
  EXPECT_FALSE(IsFileDone());
}

TEST_F(Resume, DoesAFileAgainWhoseTargetIsNotProtected) {
  scratch_.Make("file.p7m", "something else");
  SetAge("file.p7m", 5);
  EXPECT_FALSE(IsFileDone());
}

TEST_F(Resume, DoesAFileAgainWhoseTargetIsCut) {
  fs::resize_file(scratch_.Path("file.p7m"), fs::file_size(scratch_.Path("file.p7m")) / 2);
  SetAge("file.p7m", 5);
  EXPECT_FALSE(IsFileDone());
}

TEST_F(Resume, DoesAFileAgainWhoseTargetIsALink) {
  fs::rename(scratch_.Path("file.p7m"), scratch_.Path("other.p7m"));
  fs::create_symlink("other.p7m", scratch_.Path("file.p7m"));
  EXPECT_FALSE(IsFileDone());
}

TEST_F(Resume, DoesAFileThatIsMissingOnEitherSide) {
  fs::remove(scratch_.Path("file.p7m"));
  EXPECT_FALSE(IsFileDone());
  Protect();
  fs::remove(scratch_.Path("plain.txt"));
  EXPECT_FALSE(IsFileDone());
}

TEST_F(Resume, JudgesADecryptedFileByItsAge) {
  scratch_.Make("file.p7m", "anything");
  SetAge("file.p7m", 5);
  EXPECT_TRUE(IsFileDone(NameRule::RemoveSuffix));
}

TEST_F(Resume, SeesThatASourceHasChanged) {
  const SourceState before(Path("plain.txt"));
  EXPECT_EQ(before.GetSize(), fs::file_size(scratch_.Path("plain.txt")));
  EXPECT_FALSE(before.HasChanged(Path("plain.txt")));
  SetAge("plain.txt", 1);
  EXPECT_TRUE(before.HasChanged(Path("plain.txt")));
  before.GiveTimeTo(Path("file.p7m"));
  EXPECT_FALSE(IsFileDone());
}

TEST_F(Resume, SeesThatASourceIsGone) {
  const SourceState before(Path("plain.txt"));
  fs::remove(scratch_.Path("plain.txt"));
  EXPECT_TRUE(before.HasChanged(Path("plain.txt")));
}

}  // namespace
}  // namespace TestSupport

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
  bool IsFileDone(NameRule rule = NameRule::AddSuffix) const {
    return IsDone({Path("plain.txt"), "plain.txt", Path("file.p7m")}, rule);
  }

  const fs::file_time_type now_ = fs::file_time_type::clock::now();
};

TEST_F(Resume, TakesANewerProtectedTargetForDone) {
  EXPECT_TRUE(IsFileDone());
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

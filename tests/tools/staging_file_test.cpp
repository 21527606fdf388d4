#include "tools/staging_file.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "tests/support/files.h"
#include "tests/support/text.h"

namespace CryptCli {
namespace {

using OruGuiBase::AnsiStr;
using ::testing::HasSubstr;
using TestSupport::ScratchDirectory;
using TestSupport::Str;

class StagingFileTest : public ::testing::Test {
 protected:
  void SetUp() override { scratch_.Make("source", "source"); }
  std::string Path(const char* name) const { return scratch_.Path(name).string(); }
  bool Open(StagingFile& staging, bool replace) {
    return staging.Open(Path("source"), Path("target"), replace, reason_);
  }

  ScratchDirectory scratch_;
  AnsiStr reason_;
};

TEST_F(StagingFileTest, BecomesTheTarget) {
  StagingFile staging;
  ASSERT_TRUE(Open(staging, false)) << Str(reason_);
  TestSupport::WriteFile(staging.GetPath(), "new");
  EXPECT_FALSE(scratch_.Exists("target"));
  ASSERT_TRUE(staging.Commit(reason_)) << Str(reason_);
  EXPECT_EQ(scratch_.Read("target"), "new");
}

TEST_F(StagingFileTest, IsForItsOwnerAloneUntilThen) {
  StagingFile staging;
  ASSERT_TRUE(Open(staging, false));
  EXPECT_EQ(std::filesystem::status(staging.GetPath()).permissions(), std::filesystem::perms(0600));
}

TEST_F(StagingFileTest, IsDeletedUnlessItIsCommitted) {
  std::string path;
  {
    StagingFile staging;
    ASSERT_TRUE(Open(staging, false));
    path = staging.GetPath();
    EXPECT_TRUE(std::filesystem::exists(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_FALSE(scratch_.Exists("target"));
}

TEST_F(StagingFileTest, DoesNotReplaceATargetThatCameMeanwhile) {
  StagingFile staging;
  ASSERT_TRUE(Open(staging, false));
  scratch_.Make("target", "somebody else's");
  EXPECT_FALSE(staging.Commit(reason_));
  EXPECT_THAT(Str(reason_), HasSubstr("File exists"));
  EXPECT_EQ(scratch_.Read("target"), "somebody else's");
}

TEST_F(StagingFileTest, LeavesTheOldTargetUntilItIsReplaced) {
  scratch_.Make("target", "old");
  StagingFile staging;
  ASSERT_TRUE(Open(staging, true));
  TestSupport::WriteFile(staging.GetPath(), "new");
  EXPECT_EQ(scratch_.Read("target"), "old");
  ASSERT_TRUE(staging.Commit(reason_));
  EXPECT_EQ(scratch_.Read("target"), "new");
}

// Looks at the target all the time, since nothing else shows what it is like between two calls of the system.
TEST_F(StagingFileTest, NewContentNeverHasAWiderModeThanWanted) {
  std::atomic<bool> isOver{false};
  std::atomic<int> wide{0};
  scratch_.Make("target", "old");
  std::thread watcher([&] {
    struct stat status {};
    while (!isOver) {
      const bool isNew = ::stat(Path("target").c_str(), &status) == 0 && status.st_size > 3;
      if (isNew && (status.st_mode & 077U) != 0) ++wide;
    }
  });
  for (int round = 0; round < 300; ++round) {
    std::filesystem::remove(Path("target"));
    scratch_.Make("target", "old");
    std::filesystem::permissions(Path("target"), std::filesystem::perms(0644));
    StagingFile staging;
    staging.SetMode(0600);
    ASSERT_TRUE(Open(staging, true)) << Str(reason_);
    TestSupport::WriteFile(staging.GetPath(), "new content");
    ASSERT_TRUE(staging.Commit(reason_)) << Str(reason_);
  }
  isOver = true;
  watcher.join();
  EXPECT_EQ(wide, 0);
}

TEST_F(StagingFileTest, ATargetThatIsNotReplacedKeepsItsMode) {
  scratch_.Make("target", "old");
  std::filesystem::permissions(Path("target"), std::filesystem::perms(0644));
  StagingFile staging;
  staging.SetMode(0600);
  ASSERT_TRUE(Open(staging, true)) << Str(reason_);
  std::filesystem::remove(staging.GetPath());
  EXPECT_FALSE(staging.Commit(reason_));
  EXPECT_EQ(std::filesystem::status(Path("target")).permissions(), std::filesystem::perms(0644));
}

TEST_F(StagingFileTest, ATargetWithTwoNamesCanBecomeReadOnly) {
  scratch_.Make("target", "old");
  std::filesystem::create_hard_link(Path("target"), Path("second"));
  StagingFile staging;
  staging.SetMode(0400);
  ASSERT_TRUE(Open(staging, true)) << Str(reason_);
  TestSupport::WriteFile(staging.GetPath(), "new");
  ASSERT_TRUE(staging.Commit(reason_)) << Str(reason_);
  EXPECT_EQ(scratch_.Read("second"), "new");
  EXPECT_EQ(std::filesystem::status(Path("target")).permissions(), std::filesystem::perms(0400));
}

TEST_F(StagingFileTest, ADanglingLinkCountsAsAnExistingTarget) {
  std::filesystem::create_symlink("missing", Path("target"));
  StagingFile staging;
  EXPECT_FALSE(Open(staging, false));
  EXPECT_THAT(Str(reason_), HasSubstr("File exists (--force replaces it)"));
}

TEST_F(StagingFileTest, WorksInTheWorkingDirectory) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(scratch_.Path(""));
  {
    StagingFile staging;
    EXPECT_TRUE(staging.Open("source", "target", false, reason_)) << Str(reason_);
    EXPECT_TRUE(staging.Commit(reason_)) << Str(reason_);
  }
  std::filesystem::current_path(before);
  EXPECT_TRUE(scratch_.Exists("target"));
}

}  // namespace
}  // namespace CryptCli

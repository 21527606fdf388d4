#include "tools/staging_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/text.h"

namespace CryptCli {
namespace {

using OruGuiBase::AnsiStr;
using ::testing::HasSubstr;
using TestSupport::ScratchDirectory;
using TestSupport::Str;

class DraftTest : public ::testing::Test {
 protected:
  void SetUp() override { scratch_.Make("source", "source"); }
  std::string Path(const char* name) const { return scratch_.Path(name).string(); }
  bool Open(Draft& draft, bool replace) {
    return draft.Open(Path("source"), Path("target"), replace, reason_);
  }

  ScratchDirectory scratch_;
  AnsiStr reason_;
};

TEST_F(DraftTest, BecomesTheTarget) {
  Draft draft;
  ASSERT_TRUE(Open(draft, false)) << Str(reason_);
  TestSupport::WriteFile(draft.GetPath(), "new");
  EXPECT_FALSE(scratch_.Exists("target"));
  ASSERT_TRUE(draft.Commit(reason_)) << Str(reason_);
  EXPECT_EQ(scratch_.Read("target"), "new");
}

TEST_F(DraftTest, IsForItsOwnerAloneUntilThen) {
  Draft draft;
  ASSERT_TRUE(Open(draft, false));
  EXPECT_EQ(std::filesystem::status(draft.GetPath()).permissions(), std::filesystem::perms(0600));
}

TEST_F(DraftTest, GoesWhenItIsNotWanted) {
  std::string path;
  {
    Draft draft;
    ASSERT_TRUE(Open(draft, false));
    path = draft.GetPath();
    EXPECT_TRUE(std::filesystem::exists(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_FALSE(scratch_.Exists("target"));
}

TEST_F(DraftTest, DoesNotReplaceATargetThatCameMeanwhile) {
  Draft draft;
  ASSERT_TRUE(Open(draft, false));
  scratch_.Make("target", "somebody else's");
  EXPECT_FALSE(draft.Commit(reason_));
  EXPECT_THAT(Str(reason_), HasSubstr("File exists"));
  EXPECT_EQ(scratch_.Read("target"), "somebody else's");
}

TEST_F(DraftTest, LeavesTheOldTargetUntilItIsReplaced) {
  scratch_.Make("target", "old");
  Draft draft;
  ASSERT_TRUE(Open(draft, true));
  TestSupport::WriteFile(draft.GetPath(), "new");
  EXPECT_EQ(scratch_.Read("target"), "old");
  ASSERT_TRUE(draft.Commit(reason_));
  EXPECT_EQ(scratch_.Read("target"), "new");
}

TEST_F(DraftTest, ALinkThatLeadsNowhereIsThere) {
  std::filesystem::create_symlink("missing", Path("target"));
  Draft draft;
  EXPECT_FALSE(Open(draft, false));
  EXPECT_THAT(Str(reason_), HasSubstr("File exists (--force replaces it)"));
}

TEST_F(DraftTest, WorksInTheWorkingDirectory) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(scratch_.Path(""));
  {
    Draft draft;
    EXPECT_TRUE(draft.Open("source", "target", false, reason_)) << Str(reason_);
    EXPECT_TRUE(draft.Commit(reason_)) << Str(reason_);
  }
  std::filesystem::current_path(before);
  EXPECT_TRUE(scratch_.Exists("target"));
}

}  // namespace
}  // namespace CryptCli

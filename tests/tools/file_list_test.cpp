#include "tools/file_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/as_nobody.h"
#include "tests/support/files.h"

namespace CryptCli {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A tree of files; paths are shown relative to it.
class FileListTest : public ::testing::Test {
 protected:
  void Make(const std::string& name) const {
    fs::create_directories(scratch_.Path(name).parent_path());
    scratch_.Make(name, name);
  }
  std::string Path(std::string_view name) const { return scratch_.Path(name).string(); }

  // Each item as "SOURCE>RELATIVE".
  std::vector<std::string> Collect(const FileListOptions& options) {
    list_ = {};
    reason_.clear();
    EXPECT_TRUE(CollectFiles(options, list_, reason_)) << reason_;
    std::vector<std::string> all;
    for (const FileItem& item : list_.items) {
      all.push_back(fs::path(item.source).lexically_relative(Path("")).string() + ">" + item.relative);
    }
    return all;
  }

  std::string Refusal(const FileListOptions& options) {
    list_ = {};
    reason_.clear();
    EXPECT_FALSE(CollectFiles(options, list_, reason_));
    return reason_;
  }

  FileListOptions Folder(const std::string& name) const {
    FileListOptions options;
    options.files = {Path(name)};
    options.recursive = true;
    return options;
  }

  TestSupport::ScratchDirectory scratch_;
  FileList list_;
  std::string reason_;
};

TEST_F(FileListTest, TakesNamedFilesByTheirNameAlone) {
  Make("d/a.txt");
  FileListOptions options;
  options.files = {Path("d/a.txt"), Path("missing")};
  EXPECT_THAT(Collect(options), ElementsAre("d/a.txt>a.txt", "missing>missing"));
}

TEST_F(FileListTest, RefusesAFolderThatIsNotToBeEntered) {
  FileListOptions options;
  options.files = {Path("")};
  EXPECT_THAT(Refusal(options), HasSubstr("--recursive"));
}

TEST_F(FileListTest, RefusesStandardInputAmongFiles) {
  FileListOptions options;
  options.files = {"-"};
  EXPECT_THAT(Refusal(options), HasSubstr("./-"));
}

TEST_F(FileListTest, KeepsPathsBelowAFolderInSortedOrder) {
  for (const char* name : {"d/z", "d/b/2", "d/b/1", "d/a/c/x", "d/y"}) Make(name);
  EXPECT_THAT(Collect(Folder("d")), ElementsAre("d/y>y", "d/z>z", "d/a/c/x>a/c/x", "d/b/1>b/1", "d/b/2>b/2"));
}

TEST_F(FileListTest, IgnoresLinksAndSpecialFilesBelowAFolder) {
  Make("d/a");
  Make("other/b");
  fs::create_symlink(scratch_.Path("other/b"), scratch_.Path("d/file-link"));
  fs::create_directory_symlink(scratch_.Path("other"), scratch_.Path("d/folder-link"));
  ASSERT_EQ(mkfifo(Path("d/fifo").c_str(), 0600), 0);
  EXPECT_THAT(Collect(Folder("d")), ElementsAre("d/a>a"));
  EXPECT_EQ(list_.ignored.size(), 3U);
}

TEST_F(FileListTest, FollowsLinksOnRequestAndEntersEachFolderOnce) {
  Make("d/a");
  Make("other/b");
  fs::create_symlink(scratch_.Path("other/b"), scratch_.Path("d/file-link"));
  fs::create_directory_symlink(scratch_.Path("other"), scratch_.Path("d/folder-link"));
  fs::create_directory_symlink(scratch_.Path("d"), scratch_.Path("other/back"));
  FileListOptions options = Folder("d");
  options.followLinks = true;
  EXPECT_THAT(Collect(options),
              ElementsAre("d/a>a", "d/file-link>file-link", "d/folder-link/b>folder-link/b"));
}

TEST_F(FileListTest, TakesOnlyProtectedFilesFromAFolderOnRequest) {
  for (const char* name : {"d/a.p7m", "d/b.txt", "c.txt"}) Make(name);
  FileListOptions options = Folder("d");
  options.onlyProtected = true;
  options.files.push_back(Path("c.txt"));
  EXPECT_THAT(Collect(options), ElementsAre("d/a.p7m>a.p7m", "c.txt>c.txt"));
  EXPECT_EQ(list_.ignored.size(), 1U);
}

TEST_F(FileListTest, DoesNotEnterTheOutputFolder) {
  Make("d/a");
  Make("d/out/a.p7m");
  FileListOptions options = Folder("d");
  options.outputFolder = Path("d/../d/out");
  EXPECT_THAT(Collect(options), ElementsAre("d/a>a"));
}

TEST_F(FileListTest, RefusesAFolderThatIsTheOutputFolder) {
  Make("d/a");
  FileListOptions options = Folder("d");
  options.outputFolder = Path("d/.");
  EXPECT_THAT(Refusal(options), HasSubstr("output folder"));
}

TEST_F(FileListTest, ReportsAFolderThatCannotBeReadAndGoesOn) {
  Make("d/a");
  Make("d/locked/b");
  Make("d/z");
  fs::permissions(scratch_.Path(""), fs::perms::all);
  fs::permissions(scratch_.Path("d/locked"), fs::perms::none);
  {
    const TestSupport::AsNobody nobody;
    EXPECT_THAT(Collect(Folder("d")), ElementsAre("d/a>a", "d/z>z"));
  }
  EXPECT_THAT(list_.failures, ElementsAre(HasSubstr("d/locked: ")));
  fs::permissions(scratch_.Path("d/locked"), fs::perms::owner_all);
}

TEST_F(FileListTest, ReadsNamesFromAFile) {
  scratch_.Make("list", Path("a b") + "\n\n" + Path("c"));
  FileListOptions options;
  options.filesFrom = Path("list");
  EXPECT_THAT(Collect(options), ElementsAre("a b>a b", "c>c"));
}

TEST_F(FileListTest, ReadsNamesThatEndWithNul) {
  scratch_.Make("list", Path("a\nb") + '\0' + Path("c") + '\0');
  FileListOptions options;
  options.filesFrom = Path("list");
  EXPECT_THAT(Refusal(options), HasSubstr("--null"));
  options.isNullSeparated = true;
  EXPECT_THAT(Collect(options), ElementsAre("a\nb>a\nb", "c>c"));
}

TEST_F(FileListTest, KeepsRelativePathsOfAListThatStayInside) {
  scratch_.Make("list", "./x/y\nx/../z\n../up/u\n/abs/v\n");
  FileListOptions options;
  options.filesFrom = Path("list");
  Collect(options);
  std::vector<std::string> places;
  for (const FileItem& item : list_.items) places.push_back(item.relative);
  EXPECT_THAT(places, ElementsAre("x/y", "z", "u", "v"));
}

TEST_F(FileListTest, RefusesAListThatCannotBeRead) {
  FileListOptions options;
  options.filesFrom = Path("none");
  EXPECT_THAT(Refusal(options), HasSubstr("No such file"));
}

TEST(PlanTargets, AddsAndRemovesTheSuffix) {
  std::string reason;
  std::vector<FileItem> items{{"s/a.txt", "a.txt"}, {"s/b", "x/b"}};
  ASSERT_TRUE(PlanTargets("out", NameRule::AddSuffix, items, reason));
  EXPECT_EQ(items[0].target, "out/a.txt.p7m");
  EXPECT_EQ(items[1].target, "out/x/b.p7m");
  items = {{"s/a.txt.p7m", "x/a.txt.p7m"}};
  ASSERT_TRUE(PlanTargets("out", NameRule::RemoveSuffix, items, reason));
  EXPECT_EQ(items[0].target, "out/x/a.txt");
}

TEST(PlanTargets, RefusesANameWithoutSuffixToRemove) {
  for (const char* name : {"a.txt", ".p7m", "x/.p7m", "p7m"}) {
    std::string reason;
    std::vector<FileItem> items{{name, name}};
    EXPECT_FALSE(PlanTargets("out", NameRule::RemoveSuffix, items, reason)) << name;
    EXPECT_THAT(reason, HasSubstr(".p7m"));
  }
}

TEST(PlanTargets, RefusesTwoSourcesOfOneTarget) {
  std::string reason;
  std::vector<FileItem> items{{"d/a", "a"}, {"e/a", "./a"}};
  EXPECT_FALSE(PlanTargets("out", NameRule::AddSuffix, items, reason));
  EXPECT_EQ(reason, "d/a and e/a would both become out/./a.p7m");
}

TEST_F(FileListTest, RefusesATargetThatIsAnotherSource) {
  Make("a");
  Make("a.p7m");
  std::vector<FileItem> items{{Path("a"), "a"}, {Path("a.p7m"), "a.p7m"}};
  EXPECT_FALSE(PlanTargets(Path("."), NameRule::AddSuffix, items, reason_));
  EXPECT_THAT(reason_, HasSubstr("is a source"));
}

}  // namespace
}  // namespace CryptCli

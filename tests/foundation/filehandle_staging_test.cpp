#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "tests/foundation/access_list.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"
#include "tests/support/as_nobody.h"

namespace OruGuiBase {
namespace {

namespace fs = std::filesystem;

class FileWriterStagingTest : public testing::Test {
 protected:
  bool Begin(const char* name) {
    return writer_.OpenStaged(scratch_.FileOf(name)) && writer_.Write("new", 3);
  }
  std::string Content(const char* name) const { return ContentOf(scratch_.FileOf(name)); }
  /// The one file with the name of a staging file.
  std::string FindStagingFile() const {
    for (const auto& entry : fs::directory_iterator(scratch_.GetPath())) {
      if (entry.path().filename().string().starts_with(".orugui-")) return entry.path();
    }
    return "";
  }

  /// The directory and its target, so that AsNobody is their owner where root runs the tests.
  void GiveToNobody() const {
    if (::geteuid() != 0) return;
    for (const std::string& path : {std::string(scratch_.GetPath()), std::string(scratch_ / "target")})
      ASSERT_EQ(::chown(path.c_str(), TestSupport::AsNobody::kNobody, 0), 0) << path;
  }

  ScratchDirectory scratch_;
  FileWriter writer_;
};

TEST_F(FileWriterStagingTest, AStagingFileReplacesItsTargetWhenItIsClosed) {
  scratch_.MakeFile("target", "old");
  ASSERT_TRUE(Begin("target"));
  EXPECT_EQ(Content("target"), "old");
  ASSERT_TRUE(writer_.Close());
  EXPECT_EQ(Content("target"), "new");
  EXPECT_EQ(scratch_.CountEntries(), 1U);
}

TEST_F(FileWriterStagingTest, ANewTargetAppearsWhenItIsWhole) {
  ASSERT_TRUE(Begin("target"));
  EXPECT_FALSE(fs::exists(scratch_ / "target"));
  ASSERT_TRUE(writer_.Close());
  EXPECT_EQ(Content("target"), "new");
  EXPECT_EQ(scratch_.CountEntries(), 1U);
}

TEST_F(FileWriterStagingTest, AStagingFileThatIsNotClosedLeavesNothing) {
  scratch_.MakeFile("target", "old");
  {
    FileWriter writer;
    ASSERT_TRUE(writer.OpenStaged(scratch_.FileOf("target")));
    ASSERT_TRUE(writer.Write("new", 3));
  }
  EXPECT_EQ(Content("target"), "old");
  EXPECT_EQ(scratch_.CountEntries(), 1U);
}

TEST_F(FileWriterStagingTest, AnotherOpenDropsTheStagingFile) {
  ASSERT_TRUE(Begin("target"));
  ASSERT_TRUE(writer_.Open(scratch_.FileOf("other")));
  ASSERT_TRUE(writer_.Close());
  EXPECT_FALSE(fs::exists(scratch_ / "target"));
  EXPECT_EQ(scratch_.CountEntries(), 1U);
}

TEST_F(FileWriterStagingTest, AStagingFileIsForItsOwnerAlone) {
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0644), 0);
  ASSERT_TRUE(Begin("target"));
  EXPECT_EQ(ModeOf(AnsiStr(FindStagingFile())), 0600);
}

TEST_F(FileWriterStagingTest, ATargetKeepsItsMode) {
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0640), 0);
  ASSERT_TRUE(Begin("target") && writer_.Close());
  EXPECT_EQ(ModeOf(AnsiStr(scratch_ / "target")), 0640);
}

TEST_F(FileWriterStagingTest, ANewTargetGetsTheModeOfNewFiles) {
  const FileMask mask(027);
  ASSERT_TRUE(Begin("target") && writer_.Close());
  EXPECT_EQ(ModeOf(AnsiStr(scratch_ / "target")), 0640);
}

TEST_F(FileWriterStagingTest, ALinkStaysAndWhatItNamesIsWritten) {
  scratch_.MakeFile("named", "old");
  fs::create_symlink("named", scratch_ / "target");
  ASSERT_TRUE(Begin("target") && writer_.Close());
  EXPECT_TRUE(fs::is_symlink(scratch_ / "target"));
  EXPECT_EQ(Content("named"), "new");
}

TEST_F(FileWriterStagingTest, AFileOfSeveralNamesIsWrittenUnderAllOfThem) {
  scratch_.MakeFile("target", "old");
  fs::create_hard_link(scratch_ / "target", scratch_ / "other");
  ASSERT_TRUE(Begin("target") && writer_.Close());
  EXPECT_EQ(Content("other"), "new");
}

TEST_F(FileWriterStagingTest, AnEmptyFileIsWrittenItself) {
  const File file = scratch_.MakeFile("target", "");
  FileReader reader;
  ASSERT_TRUE(reader.Open(file));
  ASSERT_TRUE(Begin("target") && writer_.Close());
  EXPECT_EQ(reader.GetSize(), 3);
}

// The owner and one more user may read (the entries of acl(5), as the kernel takes them).
TEST_F(FileWriterStagingTest, AFileWithAnAccessListKeepsIt) {
  constexpr unsigned char kList[] = {2,    0,    0,    0,    1,    0,    6,    0,    0xFF, 0xFF, 0xFF,
                                     0xFF, 2,    0,    4,    0,    1,    0,    0,    0,    4,    0,
                                     0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0x10, 0,    4,    0,    0xFF,
                                     0xFF, 0xFF, 0xFF, 0x20, 0,    0,    0,    0xFF, 0xFF, 0xFF, 0xFF};
  constexpr const char* kName = "system.posix_acl_access";
  scratch_.MakeFile("target", "old");
  const std::string path = scratch_ / "target";
  if (::setxattr(path.c_str(), kName, kList, sizeof kList, 0) != 0) GTEST_SKIP() << std::strerror(errno);
  ASSERT_TRUE(Begin("target") && writer_.Close());
  EXPECT_EQ(Content("target"), "new");
  EXPECT_EQ(::getxattr(path.c_str(), kName, nullptr, 0), static_cast<ssize_t>(sizeof kList));
}

TEST_F(FileWriterStagingTest, ALaterNarrowerModeOfTheTargetIsKept) {
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0644), 0);
  ASSERT_TRUE(Begin("target"));
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0600), 0);
  ASSERT_TRUE(writer_.Close());
  EXPECT_EQ(ModeOf(AnsiStr(scratch_ / "target")), 0600);
}

TEST_F(FileWriterStagingTest, CloseFailsWhenTheTargetsGroupHasChanged) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to any group";
  scratch_.MakeFile("target", "old");
  ASSERT_TRUE(Begin("target"));
  ASSERT_EQ(::chown((scratch_ / "target").c_str(), 0, 1234), 0);
  EXPECT_FALSE(writer_.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBUSY));
  EXPECT_EQ(Content("target"), "old");
  EXPECT_EQ(FindStagingFile(), "");
}

TEST_F(FileWriterStagingTest, CloseFailsWhenTheTargetsAccessListHasChanged) {
  scratch_.MakeFile("target", "old");
  ASSERT_TRUE(Begin("target"));
  const AccessList list = {{kOwner, 6}, {kUser, 4, 1}, {kGroup, 0}, {kMask, 4}, {kOthers, 0}};
  if (!SetAccessList(scratch_ / "target", kAccessList, list)) GTEST_SKIP() << std::strerror(errno);
  EXPECT_FALSE(writer_.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBUSY));
  EXPECT_EQ(Content("target"), "old");
}

TEST_F(FileWriterStagingTest, ALinkThatTookTheTargetsPlaceMeanwhileFailsTheClose) {
  ASSERT_TRUE(Begin("target"));
  fs::create_symlink("elsewhere", scratch_ / "target");
  EXPECT_FALSE(writer_.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EEXIST));
  EXPECT_TRUE(fs::is_symlink(scratch_ / "target"));
  EXPECT_EQ(FindStagingFile(), "");
}

TEST_F(FileWriterStagingTest, ADeviceIsWrittenAndStays) {
  ASSERT_TRUE(writer_.OpenStaged(File(AnsiStr("/dev/null"))));
  ASSERT_TRUE(writer_.Write("new", 3) && writer_.Close());
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(FileWriterStagingTest, AFileOfSomebodyElseKeepsItsOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can write to a file of somebody else";
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chown((scratch_ / "target").c_str(), 1, 1), 0);
  ASSERT_TRUE(Begin("target") && writer_.Close());
  struct stat info {};
  ASSERT_EQ(::stat((scratch_ / "target").c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, 1U);
  EXPECT_EQ(Content("target"), "new");
}

TEST_F(FileWriterStagingTest, AFileOfAnotherGroupKeepsItsGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to any group";
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chown((scratch_ / "target").c_str(), 0, 1), 0);
  ASSERT_TRUE(Begin("target") && writer_.Close());
  struct stat info {};
  ASSERT_EQ(::stat((scratch_ / "target").c_str(), &info), 0);
  EXPECT_EQ(info.st_gid, 1U);
}

TEST_F(FileWriterStagingTest, ADirectoryThatTakesNoNewFilesHasItsFileWrittenInPlace) {
  scratch_.MakeFile("target", "old");
  GiveToNobody();
  ASSERT_EQ(::chmod(scratch_.GetPath().c_str(), 0555), 0);
  const TestSupport::AsNobody nobody;
  const bool done = Begin("target") && writer_.Close();
  ::chmod(scratch_.GetPath().c_str(), 0755);
  ASSERT_TRUE(done) << GetSystemErrorText().GetText();
  EXPECT_EQ(Content("target"), "new");
}

TEST_F(FileWriterStagingTest, AFileThatMayNotBeWrittenIsNotReplaced) {
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0444), 0);
  GiveToNobody();
  const TestSupport::AsNobody nobody;
  EXPECT_FALSE(Begin("target"));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EACCES));
  EXPECT_EQ(Content("target"), "old");
}

TEST_F(FileWriterStagingTest, AMissingDirectoryIsAFailure) {
  EXPECT_FALSE(Begin("missing/target"));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_FALSE(writer_.IsOpen());
}

TEST_F(FileWriterStagingTest, AnEmptyNameIsAFailure) {
  EXPECT_FALSE(writer_.OpenStaged(File(AnsiStr())));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST_F(FileWriterStagingTest, ANameThatIsTooLongFailsAtOnce) {
  EXPECT_FALSE(writer_.OpenStaged(scratch_.FileOf(std::string(300, 'x'))));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENAMETOOLONG));
}

TEST_F(FileWriterStagingTest, ATargetThatCannotBeReplacedAtTheEndFailsTheClose) {
  ASSERT_TRUE(Begin("target"));
  fs::create_directory(scratch_ / "target");
  EXPECT_FALSE(writer_.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_EQ(scratch_.CountEntries(), 1U);
}

}  // namespace
}  // namespace OruGuiBase

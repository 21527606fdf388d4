#include <cerrno>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/encoding.h"
#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

AnsiStr FolderOf(const File& file) {
  const std::string_view path = file.GetPath().View();
  return AnsiStr(path.substr(0, path.rfind('/')));
}

File MakePrivate(const AnsiStr& name) {
  return {FileType::Temporary, name, true};
}

TEST(PrivateFileTest, FileAndFolderAreForTheOwnerAlone) {
  const ScratchDirectory scratch;
  const FileMask mask(0);
  const File file = MakePrivate("report.pdf.tmp");
  ASSERT_FALSE(file.IsEmpty());
  EXPECT_EQ(file.GetTail(), "report.pdf.tmp");
  EXPECT_EQ(file.GetSize(), 0);
  EXPECT_EQ(ModeOf(file.GetPath()), 0600);
  EXPECT_EQ(ModeOf(FolderOf(file)), 0700);
  EXPECT_TRUE(file.GetPath().View().starts_with(scratch.GetPath() + "/"));
}

TEST(PrivateFileTest, TwoFilesOfOneNameNeverCollide) {
  const ScratchDirectory scratch;
  const File first = MakePrivate("same.tmp");
  const File second = MakePrivate("same.tmp");
  EXPECT_EQ(first.GetTail(), second.GetTail());
  EXPECT_FALSE(DirectoryEntry::IsEqual(first, second));
  EXPECT_NE(FolderOf(first), FolderOf(second));
}

TEST(PrivateFileTest, TheNameCannotLeaveTheFolder) {
  const ScratchDirectory scratch;
  for (const char* const name : {"../../evil.tmp", "/etc/passwd", "..", "."}) {
    const File file = MakePrivate(name);
    ASSERT_FALSE(file.IsEmpty()) << name;
    EXPECT_EQ(FolderOf(File(FolderOf(file))).View(), scratch.GetPath()) << name;
    EXPECT_EQ(ModeOf(file.GetPath()), 0600) << name;
  }
}

// The folder is new and belongs to nobody else, so a link of that name elsewhere has no effect.
TEST(PrivateFileTest, ALinkPlantedInTheTemporaryDirectoryIsNotFollowed) {
  const ScratchDirectory scratch;
  const File victim = scratch.MakeFile("victim", "untouched");
  ASSERT_EQ(::symlink(victim.GetPath().GetText(), (scratch / "name.tmp").c_str()), 0);
  const File file = MakePrivate("name.tmp");
  ASSERT_FALSE(file.IsEmpty());
  struct stat info {};
  ASSERT_EQ(::lstat(file.GetPath().GetText(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(info.st_nlink, 1U);
  EXPECT_EQ(info.st_uid, ::geteuid());
  EXPECT_EQ(ContentOf(victim), "untouched");
}

TEST(PrivateFileTest, LongNamesAreShortenedAndKeepTheirEnding) {
  const ScratchDirectory scratch;
  const struct {
    std::string stem;
    std::size_t length;
    const char* reason;
  } kRows[] = {
      {std::string(251, 'a'), 255, "exactly what fits"},
      {std::string(252, 'a'), 255, "one byte too many"},
      {std::string(5000, 'a'), 255, "far too many"},
  };
  for (const auto& row : kRows) {
    const File file = MakePrivate(AnsiStr(row.stem + ".tmp"));
    ASSERT_FALSE(file.IsEmpty()) << row.reason << ": " << GetSystemErrorText().View();
    EXPECT_EQ(file.GetTail().GetLength(), row.length) << row.reason;
    EXPECT_TRUE(file.GetTail().View().ends_with("aaa.tmp")) << row.reason;
  }
}

TEST(PrivateFileTest, LongNamesAreCutBetweenCharacters) {
  const ScratchDirectory scratch;
  for (const std::string character : {"\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
      std::string name(shift, 'a');
      while (name.size() < 300) name += character;
      const File file = MakePrivate(AnsiStr(name + ".tmp"));
      ASSERT_FALSE(file.IsEmpty());
      const AnsiStr tail = file.GetTail();
      EXPECT_LE(tail.GetLength(), 255U);
      EXPECT_GT(tail.GetLength(), 255U - character.size());
      EXPECT_TRUE(IsValidUTF8(tail.GetText(), tail.GetLength()));
      EXPECT_TRUE(tail.View().ends_with(character + ".tmp"));
    }
  }
}

TEST(PrivateFileTest, ALongNameWithoutTheEndingIsCutAtItsEnd) {
  const ScratchDirectory scratch;
  const File file = MakePrivate(AnsiStr(std::string(300, 'b')));
  EXPECT_EQ(file.GetTail().View(), std::string(255, 'b'));
}

TEST(PrivateFileTest, AMissingTemporaryDirectoryIsAFailure) {
  const ScratchDirectory scratch;
  ::setenv("TMPDIR", (scratch / "missing").c_str(), 1);
  const File file = MakePrivate("a.tmp");
  EXPECT_TRUE(file.IsEmpty());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(PrivateFileTest, AFileForATemporaryDirectoryIsAFailure) {
  const ScratchDirectory scratch;
  const File notAFolder = scratch.MakeFile("file", "");
  ::setenv("TMPDIR", notAFolder.GetPath().GetText(), 1);
  EXPECT_TRUE(MakePrivate("a.tmp").IsEmpty());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOTDIR));
}

TEST(TempFileTest, CleanupRemovesFileAndFolder) {
  const ScratchDirectory scratch;
  TempFile temp;
  temp.Take(MakePrivate("a.tmp"));
  std::ofstream(temp.GetPath().GetText()) << "plain content";
  EXPECT_EQ(scratch.CountEntries(), 2U);
  temp.Cleanup();
  EXPECT_EQ(scratch.CountEntries(), 0U);
  EXPECT_TRUE(temp.GetPath().IsEmpty());
  temp.Cleanup();
}

TEST(TempFileTest, DestructorCleansUp) {
  const ScratchDirectory scratch;
  {
    TempFile temp;
    temp.Take(MakePrivate("a.tmp"));
    EXPECT_EQ(scratch.CountEntries(), 2U);
  }
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(TempFileTest, TakingAnotherRemovesTheFirst) {
  const ScratchDirectory scratch;
  TempFile temp;
  temp.Take(MakePrivate("a.tmp"));
  const File second = MakePrivate("b.tmp");
  temp.Take(second);
  EXPECT_EQ(scratch.CountEntries(), 2U);
  EXPECT_EQ(temp.GetPath(), second.GetPath());
  EXPECT_TRUE(DirectoryEntry::IsEqual(temp.GetFile(), second));
}

TEST(TempFileTest, CleanupOfAFileThatIsGoneStillRemovesTheFolder) {
  const ScratchDirectory scratch;
  TempFile temp;
  temp.Take(MakePrivate("a.tmp"));
  ASSERT_TRUE(temp.GetFile().Remove(/*mayBeMissing=*/false));
  temp.Cleanup();
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(TempFileTest, GiveUpRemovesOnlyTheFolder) {
  const ScratchDirectory scratch;
  TempFile temp;
  temp.Take(MakePrivate("a.tmp"));
  ASSERT_TRUE(temp.GetFile().Move(scratch.FileOf("kept"), /*keepTarget=*/false));
  temp.GiveUp();
  EXPECT_EQ(scratch.CountEntries(), 1U);
  EXPECT_TRUE(Exists(AnsiStr(scratch / "kept")));
}

TEST(TempFileTest, AFolderOfSomebodyElseIsLeftAlone) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkdir((scratch / "folder").c_str(), 0700), 0);
  TempFile temp;
  temp.Take(scratch.MakeFile("folder/a.tmp", "content"));
  temp.Cleanup();
  EXPECT_TRUE(Exists(AnsiStr(scratch / "folder")));
  EXPECT_FALSE(Exists(AnsiStr(scratch / "folder/a.tmp")));
}

TEST(TempFileTest, CleanupKeepsTheReasonOfTheFailureBeforeIt) {
  const ScratchDirectory scratch;
  TempFile temp;
  temp.Take(MakePrivate("a.tmp"));
  ASSERT_TRUE(temp.GetFile().Remove(/*mayBeMissing=*/false));
  SetErrorMessage("The signer said no");
  temp.Cleanup();
  EXPECT_EQ(GetSystemErrorText(), "The signer said no");
}

// Somebody who may change the directory can take the file of a program away or put another in its place while
// that waits.
class SwappedFileTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(temp_.CreateFor(scratch_.FileOf("target")));
    ASSERT_TRUE(temp_.GetFile().Remove(/*mayBeMissing=*/false));
  }
  bool Write() {
    FileWriter writer;
    return writer.Open(temp_.GetFile()) && writer.Write("plain", 5) && writer.Close();
  }
  bool Append() {
    FileWriter writer;
    return writer.OpenAppend(temp_.GetFile()) && writer.Write("plain", 5) && writer.Close();
  }
  void ExpectRefused() {
    EXPECT_FALSE(Write());
    EXPECT_FALSE(Append());
    EXPECT_FALSE(temp_.GetFile().Move(scratch_.FileOf("target"), /*keepTarget=*/false));
    EXPECT_FALSE(Exists(AnsiStr(scratch_ / "target")));
  }

  ScratchDirectory scratch_;
  TempFile temp_;
};

TEST_F(SwappedFileTest, AFileThatIsGoneIsNotMadeAgain) {
  ExpectRefused();
  EXPECT_EQ(scratch_.CountEntries(), 0U);
}

TEST_F(SwappedFileTest, ALinkIsNotFollowed) {
  const File other = scratch_.MakeFile("other", "old");
  ASSERT_EQ(::symlink("other", temp_.GetPath().GetText()), 0);
  ExpectRefused();
  EXPECT_EQ(ContentOf(other), "old");
}

TEST_F(SwappedFileTest, AFileThatOthersMayReadIsNotWritten) {
  scratch_.MakeFile(temp_.GetFile().GetTail().View(), "old");
  ASSERT_EQ(::chmod(temp_.GetPath().GetText(), 0644), 0);
  EXPECT_FALSE(Write());
  EXPECT_EQ(ContentOf(temp_.GetFile()), "old");
  EXPECT_EQ(ModeOf(temp_.GetPath()), 0644);
}

TEST_F(SwappedFileTest, AFileOfSeveralNamesIsNotWritten) {
  const File other = scratch_.MakeFile("other", "old");
  ASSERT_EQ(::chmod((scratch_ / "other").c_str(), 0600), 0);
  ASSERT_EQ(::link((scratch_ / "other").c_str(), temp_.GetPath().GetText()), 0);
  ExpectRefused();
  EXPECT_EQ(ContentOf(other), "old");
}

TEST_F(SwappedFileTest, AFileOfSomebodyElseIsNotWritten) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  scratch_.MakeFile(temp_.GetFile().GetTail().View(), "old");
  ASSERT_EQ(::chmod(temp_.GetPath().GetText(), 0600), 0);
  ASSERT_EQ(::chown(temp_.GetPath().GetText(), 1, 0), 0);
  ExpectRefused();
  EXPECT_EQ(ContentOf(temp_.GetFile()), "old");
}

TEST_F(SwappedFileTest, ContentThatIsMovedThereIsForTheOwnerAlone) {
  scratch_.MakeFile(temp_.GetFile().GetTail().View(), "old");
  ASSERT_EQ(::chmod(temp_.GetPath().GetText(), 0666), 0);
  TempFile content;
  content.Take(MakePrivate("a.tmp"));
  ASSERT_TRUE(content.GetFile().Move(temp_.GetFile(), /*keepTarget=*/false));
  EXPECT_EQ(ModeOf(temp_.GetPath()), 0600);
}

TEST_F(SwappedFileTest, AFIFOIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(temp_.GetPath().GetText(), 0600), 0);
  ExpectRefused();
}

TEST(TempFileTest, CreateMakesAPrivateFile) {
  const ScratchDirectory scratch;
  TempFile temp;
  ASSERT_TRUE(temp.Create(scratch.FileOf("log")));
  EXPECT_TRUE(temp.GetFile().IsPrivate());
}

}  // namespace
}  // namespace OruGuiBase

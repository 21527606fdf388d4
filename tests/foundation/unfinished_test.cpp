#include "foundation/unfinished.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

// Once the files of a process were removed it makes no others, so each test has a process of its own. It ends
// without running destructors, which would remove the files as well.
bool InChild(const std::function<bool()>& act) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(act() ? 0 : 1);
  int status = -1;
  return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

TEST(RemoveUnfinishedFilesTest, RemovesAPrivateFileWithItsDirectory) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    const File file(FileType::Temporary, "a.tmp", true);
    const bool isMade = Exists(file.GetPath());
    RemoveUnfinishedFiles();
    return isMade;
  }));
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

// A transport may put another file beside the one that it fills.
TEST(RemoveUnfinishedFilesTest, RemovesAPrivateDirectoryWithItsFiles) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    const File file(FileType::Temporary, "a.tmp", true);
    const bool isMade = File(file.GetPath() + ".part").Create();
    RemoveUnfinishedFiles();
    return isMade;
  }));
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(RemoveUnfinishedFilesTest, RemovesAStagingFileAndKeepsItsTarget) {
  const ScratchDirectory scratch;
  const File target = scratch.MakeFile("target", "old");
  EXPECT_TRUE(InChild([&] {
    FileWriter writer;
    const bool isBegun = writer.OpenStaged(target) && writer.Write("new", 3) && scratch.CountEntries() == 2;
    RemoveUnfinishedFiles();
    ::_exit(isBegun ? 0 : 1);
    return false;
  }));
  EXPECT_EQ(ContentOf(target), "old");
  EXPECT_EQ(scratch.CountEntries(), 1U);
}

TEST(RemoveUnfinishedFilesTest, KeepsFinishedFiles) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    FileWriter writer;
    TempFile log;
    const bool isDone =
        writer.OpenStaged(scratch.FileOf("target")) && writer.Close() && log.Create(scratch.FileOf("log"));
    log.GiveUp();
    RemoveUnfinishedFiles();
    return isDone;
  }));
  EXPECT_TRUE(Exists(AnsiStr(scratch / "target")));
  EXPECT_TRUE(Exists(AnsiStr(scratch / "log")));
}

TEST(RemoveUnfinishedFilesTest, RefusesNewFilesAfterwards) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    RemoveUnfinishedFiles();
    const AnsiStr canceled = std::strerror(ECANCELED);
    const bool hasNoFile =
        File(FileType::Temporary, "a.tmp", /*isPrivate=*/true).IsEmpty() && GetSystemErrorText() == canceled;
    FileWriter writer;
    const bool hasNoStaging =
        !writer.OpenStaged(scratch.FileOf("target")) && GetSystemErrorText() == canceled;
    TempFile log;
    const bool hasNoLog = !log.Create(scratch.FileOf("log")) && GetSystemErrorText() == canceled;
    TempDirectory directory;
    return hasNoFile && hasNoStaging && hasNoLog && !directory.Create("program");
  }));
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(RemoveUnfinishedFilesTest, RefusesToMakeRemovedFilesAgain) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    TempFile staged;
    TempFile log;
    const bool isMade = staged.CreateFor(scratch.FileOf("target")) && log.Create(scratch.FileOf("log"));
    RemoveUnfinishedFiles();
    FileWriter writer;
    const bool isRefused = !writer.OpenStaged(staged.GetFile()) && !writer.OpenAppend(log.GetFile());
    ::_exit(isMade && isRefused && scratch.CountEntries() == 0 ? 0 : 1);
    return false;
  }));
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(RemoveUnfinishedFilesTest, AChildKeepsTheFilesOfItsParent) {
  const ScratchDirectory scratch;
  TempFile log;
  ASSERT_TRUE(log.Create(scratch.FileOf("log")));
  EXPECT_TRUE(InChild([&] {
    RemoveUnfinishedFiles();
    return true;
  }));
  EXPECT_TRUE(Exists(log.GetPath()));
}

// The program may have changed its working directory.
TEST(RemoveUnfinishedFilesTest, RemovesRelativePathsFromAnyWorkingDirectory) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    FileWriter writer;
    TempFile log;
    const bool isBegun = ::chdir(scratch.GetPath().c_str()) == 0 && writer.OpenStaged(File("t")) &&
                         log.Create(File("log")) && scratch.CountEntries() == 2 && ::chdir("/") == 0;
    RemoveUnfinishedFiles();
    ::_exit(isBegun ? 0 : 1);
    return false;
  }));
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(RemoveUnfinishedFilesTest, RemovesFilesThatOtherThreadsMakeMeanwhile) {
  const ScratchDirectory scratch;
  EXPECT_TRUE(InChild([&] {
    std::atomic<int> made{0};
    const auto work = [&] {
      for (;;) {
        if (!File(FileType::Temporary, "a.tmp", /*isPrivate=*/true).IsEmpty()) ++made;
      }
    };
    for (int i = 0; i < 4; ++i) std::thread(work).detach();
    while (made < 100) std::this_thread::yield();
    RemoveUnfinishedFiles();
    ::_exit(scratch.CountEntries() == 0 ? 0 : 1);
    return false;
  }));
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(TempDirectoryTest, IsPrivateAndIsRemovedWithItsFiles) {
  const ScratchDirectory scratch;
  {
    TempDirectory directory;
    ASSERT_TRUE(directory.Create("program"));
    EXPECT_TRUE(directory.GetPath().View().starts_with(scratch / "program-"));
    EXPECT_EQ(ModeOf(directory.GetPath()), 0700);
    EXPECT_TRUE(File(directory.GetPath() + "/file").Create());
  }
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(TempDirectoryTest, AMissingTemporaryDirectoryIsAFailure) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::setenv("TMPDIR", (scratch / "missing").c_str(), 1), 0);
  TempDirectory directory;
  EXPECT_FALSE(directory.Create("program"));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(TempFileTest, CreateMakesAnEmptyFileForItsOwnerAlone) {
  const ScratchDirectory scratch;
  const FileMask mask(022);
  TempFile temp;
  ASSERT_TRUE(temp.Create(scratch.FileOf("log")));
  EXPECT_EQ(ModeOf(temp.GetPath()), 0600);
  temp.Cleanup();
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

TEST(TempFileTest, CreateLeavesWhatIsThere) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("log", "old");
  {
    TempFile temp;
    EXPECT_FALSE(temp.Create(file));
    EXPECT_EQ(GetSystemErrorText(), std::strerror(EEXIST));
  }
  EXPECT_EQ(ContentOf(file), "old");
}

TEST(TempFileTest, AFileForATargetLiesBesideIt) {
  const ScratchDirectory scratch;
  scratch.MakeFile("target", "old");
  TempFile temp;
  ASSERT_TRUE(temp.CreateFor(scratch.FileOf("target")));
  EXPECT_EQ(std::filesystem::path(temp.GetPath().GetText()).parent_path(), scratch.GetPath());
  EXPECT_EQ(ModeOf(temp.GetPath()), 0600);
  EXPECT_TRUE(temp.GetFile().Move(scratch.FileOf("target"), /*keepTarget=*/false));
  temp.GiveUp();
  EXPECT_EQ(scratch.CountEntries(), 1U);
}

TEST(TempFileTest, AFileForATargetThatIsWrittenInPlaceLiesAmongTemporaryFiles) {
  const ScratchDirectory scratch;
  std::filesystem::create_symlink("named", scratch / "target");
  const ScratchDirectory temporary;
  TempFile temp;
  ASSERT_TRUE(temp.CreateFor(scratch.FileOf("target")));
  EXPECT_TRUE(temp.GetPath().View().starts_with(temporary.GetPath()));
  EXPECT_EQ(scratch.CountEntries(), 1U);
}

}  // namespace
}  // namespace OruGuiBase

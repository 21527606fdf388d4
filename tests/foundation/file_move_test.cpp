#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "tests/foundation/file_size_limit.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

// A private file with content, as an operation leaves it.
File MakePrivate(const char* name, const std::string& content) {
  const File file(FileType::Temporary, name, true);
  std::ofstream(file.GetPath().GetText(), std::ios::binary) << content;
  return file;
}

bool AreOnOneFileSystem(const std::string& a, const std::string& b) {
  struct stat first {};
  struct stat second {};
  return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev;
}

TEST(FileMoveTest, RenamesTheFile) {
  const ScratchDirectory scratch;
  const File source = scratch.MakeFile("a", "content");
  EXPECT_TRUE(source.Move(scratch.FileOf("b"), /*keepTarget=*/false));
  EXPECT_FALSE(Exists(source.GetPath()));
  EXPECT_EQ(ContentOf(scratch.FileOf("b")), "content");
}

TEST(FileMoveTest, ReplacesAnExistingTarget) {
  const ScratchDirectory scratch;
  const File source = scratch.MakeFile("a", "new");
  const File target = scratch.MakeFile("b", "old and longer");
  EXPECT_TRUE(source.Move(target, /*keepTarget=*/false));
  EXPECT_EQ(ContentOf(target), "new");
  EXPECT_EQ(scratch.CountEntries(), 1U);
}

TEST(FileReplaceTest, RenamesAPrivateFileOverTheTarget) {
  const ScratchDirectory scratch;
  const File target = scratch.MakeFile("a", "old");
  TempFile staging;
  ASSERT_TRUE(staging.CreateFor(target));
  std::ofstream(staging.GetPath().GetText(), std::ios::binary) << "new";
  EXPECT_TRUE(staging.GetFile().Replace(target));
  EXPECT_EQ(ContentOf(target), "new");
  EXPECT_EQ(scratch.CountEntries(), 1U);
}

TEST(FileReplaceTest, WritesNothingInPlace) {
  const ScratchDirectory scratch;
  const File target = scratch.MakeFile("a", "old");
  TempFile staging;
  ASSERT_TRUE(staging.CreateFor(target));
  std::ofstream(staging.GetPath().GetText(), std::ios::binary) << "new";
  std::filesystem::create_hard_link(target.GetPath().GetText(), scratch.FileOf("b").GetPath().GetText());
  EXPECT_FALSE(staging.GetFile().Replace(target));
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(EXDEV));
  EXPECT_EQ(ContentOf(target), "old");
  EXPECT_EQ(ContentOf(staging.GetFile()), "new");
}

TEST(FileMoveTest, KeepsAnExistingTargetOnRequest) {
  const ScratchDirectory scratch;
  const File source = scratch.MakeFile("a", "new");
  const File target = scratch.MakeFile("b", "old");
  EXPECT_FALSE(source.Move(target, /*keepTarget=*/true));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EEXIST));
  EXPECT_EQ(ContentOf(source), "new");
  EXPECT_EQ(ContentOf(target), "old");
  EXPECT_TRUE(source.Move(scratch.FileOf("c"), /*keepTarget=*/true));
  EXPECT_EQ(ContentOf(scratch.FileOf("c")), "new");
}

TEST(FileMoveTest, AnOrdinaryFileKeepsItsMode) {
  const ScratchDirectory scratch;
  const File source = scratch.MakeFile("a", "content");
  ASSERT_EQ(::chmod(source.GetPath().GetText(), 0604), 0);
  EXPECT_TRUE(source.Move(scratch.FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(ModeOf(AnsiStr(scratch / "b")), 0604);
}

TEST(FileMoveTest, APrivateFileGetsTheModeOfANewFile) {
  const ScratchDirectory scratch;
  for (const mode_t mask : {0022U, 0027U, 0077U, 0002U}) {
    const FileMask guard(mask);
    const File source = MakePrivate("a.tmp", "content");
    ASSERT_EQ(ModeOf(source.GetPath()), 0600);
    EXPECT_TRUE(source.Move(scratch.FileOf("b"), /*keepTarget=*/false));
    EXPECT_EQ(ModeOf(AnsiStr(scratch / "b")), static_cast<int>(0666U & ~mask));
    EXPECT_TRUE(scratch.FileOf("b").Remove(/*mayBeMissing=*/false));
  }
}

TEST(FileMoveTest, APrivateFileGetsTheModeOfTheFileItReplaces) {
  const ScratchDirectory scratch;
  const File target = scratch.MakeFile("b", "old");
  ASSERT_EQ(::chmod(target.GetPath().GetText(), 0606), 0);
  EXPECT_TRUE(MakePrivate("a.tmp", "new").Move(target, /*keepTarget=*/false));
  EXPECT_EQ(ModeOf(target.GetPath()), 0606);
  EXPECT_EQ(ContentOf(target), "new");
}

TEST(FileMoveTest, APrivateDirectoryIsEmptyAfterTheMove) {
  const ScratchDirectory scratch;
  const File source = MakePrivate("a.tmp", "content");
  TempFile temp;
  temp.Take(source);
  EXPECT_TRUE(source.Move(scratch.FileOf("b"), /*keepTarget=*/false));
  temp.GiveUp();
  EXPECT_EQ(scratch.CountEntries(), 1U);
}

// The target stays as it was.
TEST(FileMoveTest, AMissingSourceIsAFailure) {
  const ScratchDirectory scratch;
  const File target = scratch.MakeFile("b", "old");
  EXPECT_FALSE(scratch.FileOf("missing").Move(target, /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_EQ(ContentOf(target), "old");
}

TEST(FileMoveTest, AMissingFolderLeavesTheSourceAsItWas) {
  const ScratchDirectory scratch;
  const File source = MakePrivate("a.tmp", "content");
  EXPECT_FALSE(source.Move(scratch.FileOf("missing/b"), /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_EQ(ContentOf(source), "content");
  EXPECT_EQ(ModeOf(source.GetPath()), 0600);
}

TEST(FileMoveTest, ADirectoryIsNoSource) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkdir((scratch / "folder").c_str(), 0700), 0);
  EXPECT_FALSE(scratch.FileOf("folder").Move(scratch.FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_TRUE(Exists(AnsiStr(scratch / "folder")));
}

TEST(FileMoveTest, ADirectoryIsNoTarget) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkdir((scratch / "folder").c_str(), 0700), 0);
  const File source = MakePrivate("a.tmp", "content");
  EXPECT_FALSE(source.Move(scratch.FileOf("folder"), /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_EQ(ContentOf(source), "content");
  EXPECT_EQ(ModeOf(source.GetPath()), 0600);
}

// Written in place, the source would be emptied before it is read.
TEST(FileMoveTest, ALinkThatNamesTheSourceIsReplacedByIt) {
  const ScratchDirectory scratch;
  const File source = scratch.MakeFile("a", "content");
  ASSERT_EQ(::symlink("a", (scratch / "link").c_str()), 0);
  EXPECT_TRUE(source.Move(scratch.FileOf("link"), /*keepTarget=*/false));
  EXPECT_EQ(ContentOf(scratch.FileOf("link")), "content");
  EXPECT_FALSE(std::filesystem::is_symlink(scratch / "link"));
}

TEST(FileMoveTest, AnotherNameOfTheSourceKeepsTheContent) {
  const ScratchDirectory scratch;
  const File source = scratch.MakeFile("a", "content");
  std::filesystem::create_hard_link(scratch / "a", scratch / "b");
  EXPECT_TRUE(source.Move(scratch.FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(ContentOf(scratch.FileOf("b")), "content");
  EXPECT_TRUE(scratch.FileOf("b").Move(scratch.FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(ContentOf(scratch.FileOf("b")), "content");
}

// The source lies on one file system, the target on another.
class FileMoveAcrossTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::is_directory("/dev/shm") || AreOnOneFileSystem("/tmp", "/dev/shm")) {
      GTEST_SKIP() << "/tmp and /dev/shm are one file system";
    }
    there.emplace("/dev/shm");
    // The latest one is TMPDIR.
    here.emplace("/tmp");
  }
  void TearDown() override {
    here.reset();
    there.reset();
  }

  std::optional<ScratchDirectory> there;
  std::optional<ScratchDirectory> here;
};

TEST_F(FileMoveAcrossTest, CopiesAndRemovesTheSource) {
  const std::string content(kStreamBuffer * 2 + 12345, 'x');
  const File source = here->MakeFile("a", content);
  EXPECT_TRUE(source.Move(there->FileOf("b"), /*keepTarget=*/false));
  EXPECT_FALSE(Exists(source.GetPath()));
  EXPECT_EQ(ContentOf(there->FileOf("b")), content);
  EXPECT_EQ(there->CountEntries(), 1U);
}

TEST_F(FileMoveAcrossTest, AnEmptyFileIsMovedToo) {
  EXPECT_TRUE(here->MakeFile("a", "").Move(there->FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(there->FileOf("b").GetSize(), 0);
}

TEST_F(FileMoveAcrossTest, ReplacesAnExistingTarget) {
  const File target = there->MakeFile("b", "old and longer");
  EXPECT_TRUE(here->MakeFile("a", "new").Move(target, /*keepTarget=*/false));
  EXPECT_EQ(ContentOf(target), "new");
}

TEST_F(FileMoveAcrossTest, KeepsAnExistingTargetOnRequest) {
  const File target = there->MakeFile("b", "old");
  const File source = here->MakeFile("a", "new");
  EXPECT_FALSE(source.Move(target, /*keepTarget=*/true));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EEXIST));
  EXPECT_EQ(ContentOf(source), "new");
  EXPECT_EQ(ContentOf(target), "old");
  EXPECT_EQ(there->CountEntries(), 1U);
}

TEST_F(FileMoveAcrossTest, ModesAreTheSameAsOnOneFileSystem) {
  const FileMask mask(027);
  const File plain = here->MakeFile("a", "content");
  ASSERT_EQ(::chmod(plain.GetPath().GetText(), 0604), 0);
  EXPECT_TRUE(plain.Move(there->FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(ModeOf(AnsiStr(*there / "b")), 0604);
  EXPECT_TRUE(MakePrivate("a.tmp", "content").Move(there->FileOf("c"), /*keepTarget=*/false));
  EXPECT_EQ(ModeOf(AnsiStr(*there / "c")), 0640);
  EXPECT_TRUE(MakePrivate("a.tmp", "content").Move(there->FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(ModeOf(AnsiStr(*there / "b")), 0604);
}

TEST_F(FileMoveAcrossTest, AMissingFolderLeavesTheSourceAsItWas) {
  const File source = MakePrivate("a.tmp", "content");
  EXPECT_FALSE(source.Move(there->FileOf("missing/b"), /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_EQ(ContentOf(source), "content");
  EXPECT_EQ(ModeOf(source.GetPath()), 0600);
}

TEST_F(FileMoveAcrossTest, ADirectoryAtTheTargetLeavesTheSourceAsItWas) {
  ASSERT_EQ(::mkdir((*there / "folder").c_str(), 0700), 0);
  const File source = MakePrivate("a.tmp", "content");
  EXPECT_FALSE(source.Move(there->FileOf("folder"), /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_EQ(ContentOf(source), "content");
  EXPECT_EQ(ModeOf(source.GetPath()), 0600);
  EXPECT_EQ(there->CountEntries(), 1U);
}

TEST_F(FileMoveAcrossTest, ADiskThatFillsUpLeavesNoHalfWrittenTarget) {
  const std::string content(std::size_t{kStreamBuffer} * 3, 'x');
  const File source = here->MakeFile("a", content);
  const File target = there->MakeFile("b", "old");
  {
    const FileSizeLimit limit(kStreamBuffer + 100);
    EXPECT_FALSE(source.Move(target, /*keepTarget=*/false));
    EXPECT_EQ(GetSystemErrorText(), std::strerror(EFBIG));
  }
  EXPECT_EQ(ContentOf(source), content);
  EXPECT_EQ(ContentOf(target), "old");
  EXPECT_EQ(there->CountEntries(), 1U);
}

// Both files then have the whole content.
TEST_F(FileMoveAcrossTest, FailsWithACompleteTargetWhenTheSourceCannotBeRemoved) {
  const File source(AnsiStr("/proc/version"));
  const File target = there->MakeFile("b", "old");
  EXPECT_FALSE(source.Move(target, /*keepTarget=*/false));
  const AnsiStr reason = GetSystemErrorText();
  EXPECT_TRUE(reason == std::strerror(EPERM) || reason == std::strerror(EACCES)) << reason.View();
  EXPECT_EQ(ContentOf(target), ContentOf(source));
  EXPECT_FALSE(ContentOf(target).empty());
  EXPECT_EQ(there->CountEntries(), 1U);
}

TEST_F(FileMoveAcrossTest, APipeIsNotCopied) {
  ASSERT_EQ(::mkfifo((*here / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(here->FileOf("pipe").Move(there->FileOf("b"), /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EXDEV));
  EXPECT_EQ(there->CountEntries(), 0U);
}

/// A file system of 1 MiB at the place of a directory, which this process alone sees.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(const ScratchDirectory& place) : path_(place.GetPath()) {
    isMounted_ = ::unshare(CLONE_NEWNS) == 0 &&
                 ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 ::mount("none", path_.c_str(), "tmpfs", 0, "size=1m") == 0;
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;
  ~SmallFileSystem() {
    if (isMounted_) ::umount2(path_.c_str(), MNT_DETACH);
  }
  bool IsMounted() const { return isMounted_; }

 private:
  std::string path_;
  bool isMounted_ = false;
};

TEST(FileMoveTest, AFullDiskKeepsATargetThatIsWrittenInPlace) {
  const ScratchDirectory elsewhere;
  const ScratchDirectory scratch;
  const SmallFileSystem disk(scratch);
  if (!disk.IsMounted()) GTEST_SKIP() << "no mount of our own: not root, or in a chroot";
  const std::string before(300'000, 'o');
  const File target = scratch.MakeFile("a", before);
  std::filesystem::create_hard_link(scratch / "a", scratch / "b");
  const File source = elsewhere.MakeFile("source", std::string(2'000'000, 'n'));
  EXPECT_FALSE(source.Move(target, /*keepTarget=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
  EXPECT_TRUE(ContentOf(target) == before) << std::filesystem::file_size(scratch / "a");
  EXPECT_TRUE(std::filesystem::exists(elsewhere / "source"));
  // The space that could be reserved is free again, and what fits is written.
  const File smaller = elsewhere.MakeFile("smaller", std::string(700'000, 'n'));
  EXPECT_TRUE(smaller.Move(target, /*keepTarget=*/false));
  EXPECT_EQ(std::filesystem::file_size(scratch / "b"), 700'000U);
}

}  // namespace
}  // namespace OruGuiBase

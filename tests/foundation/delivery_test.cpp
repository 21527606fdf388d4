// What a target is when content is delivered to it, and what becomes of it: by moving a private file and by
// writing.
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
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
using TestSupport::AsNobody;

constexpr const char* kNew = "new content";

/// The ways in which content reaches a target.
enum class Way { Moved, MovedAcross, Written, MovedFromWithoutLists, Staged };

class DeliveryTest : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override {
    if (GetParam() == Way::MovedAcross && !fs::is_directory("/dev/shm")) GTEST_SKIP() << "no /dev/shm";
    if (GetParam() == Way::MovedFromWithoutLists && !MountWithoutLists())
      GTEST_SKIP() << "no mount of our own: not root, or in a chroot";
  }
  void TearDown() override {
    if (isMounted_) ::umount2(mounted_.GetPath().c_str(), MNT_DETACH);
  }
  bool Deliver(const std::string& name) {
    const File target = scratch_.FileOf(name);
    if (GetParam() == Way::Written) return WriteTo(target);
    if (GetParam() == Way::Staged) return StageFor(target);
    if (GetParam() == Way::MovedFromWithoutLists) return MoveTo(target, mounted_.GetPath().c_str());
    if (GetParam() == Way::MovedAcross) return MoveTo(target, "/dev/shm");
    return MoveTo(target, "/tmp");
  }
  struct stat Look(const std::string& name) const {
    struct stat info {};
    EXPECT_EQ(::lstat((scratch_ / name).c_str(), &info), 0) << std::strerror(errno);
    return info;
  }
  std::string Content(const char* name) const { return ContentOf(scratch_.FileOf(name)); }
  void GiveToNobody(const std::string& path) const {
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(path.c_str(), AsNobody::kNobody, 0), 0);
    }
  }

  ScratchDirectory mounted_;
  ScratchDirectory scratch_;

 private:
  // A file system that keeps no access lists, seen by this process alone.
  bool MountWithoutLists() {
    isMounted_ = ::unshare(CLONE_NEWNS) == 0 &&
                 ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 ::mount("none", mounted_.GetPath().c_str(), "ramfs", 0, "mode=1777") == 0;
    return isMounted_;
  }
  // As the command does: the file is there while servers are asked, and written by its name.
  static bool StageFor(const File& target) {
    const ScratchDirectory temporary("/tmp");
    TempFile staged;
    FileWriter writer;
    if (!staged.CreateFor(target) || !writer.Open(staged.GetFile()) ||
        !writer.Write(kNew, static_cast<std::uint32_t>(std::strlen(kNew))) || !writer.Close() ||
        !staged.GetFile().Move(target, /*keepTarget=*/false)) {
      return false;
    }
    staged.GiveUp();
    return true;
  }
  static bool WriteTo(const File& target) {
    FileWriter writer;
    const auto size = static_cast<std::uint32_t>(std::strlen(kNew));
    return writer.OpenStaged(target) && writer.Preallocate(1 << 20) && writer.Write(kNew, size) &&
           writer.Truncate(size) && writer.Close();
  }
  static bool MoveTo(const File& target, const char* place) {
    const ScratchDirectory temporary(place);
    const File source(FileType::Temporary, "a.tmp", true);
    TempFile owner;
    owner.Take(source);
    std::ofstream(source.GetPath().GetText(), std::ios::binary) << kNew;
    if (!source.Move(target, /*keepTarget=*/false)) return false;
    owner.GiveUp();
    EXPECT_EQ(temporary.CountEntries(), 0U);
    return true;
  }

  bool isMounted_ = false;
};

std::string NameOf(const testing::TestParamInfo<Way>& instance) {
  constexpr const char* kNames[] = {"Moved", "MovedAcross", "Written", "MovedFromWithoutLists", "Staged"};
  return kNames[static_cast<int>(instance.param)];
}

INSTANTIATE_TEST_SUITE_P(Ways, DeliveryTest,
                         testing::Values(Way::Moved, Way::MovedAcross, Way::Written,
                                         Way::MovedFromWithoutLists, Way::Staged),
                         NameOf);

TEST_P(DeliveryTest, ADeviceIsWrittenThroughAndStays) {
  const std::string node = scratch_ / "null";
  if (::mknod(node.c_str(), S_IFCHR | 0666, ::makedev(1, 3)) != 0) GTEST_SKIP() << "only root can make one";
  EXPECT_TRUE(Deliver("null")) << GetSystemErrorText().GetText();
  EXPECT_TRUE(fs::is_character_file(node));
}

TEST_P(DeliveryTest, AFIFOIsWrittenThroughAndStays) {
  ASSERT_EQ(::mkfifo((scratch_ / "fifo").c_str(), 0600), 0);
  // The reader also writes a little, so that it never waits for a delivery that failed.
  const int both = ::open((scratch_ / "fifo").c_str(), O_RDWR | O_NONBLOCK);
  EXPECT_TRUE(Deliver("fifo")) << GetSystemErrorText().GetText();
  char bytes[100];
  EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(std::max<ssize_t>(::read(both, bytes, 100), 0))),
            kNew);
  ::close(both);
  EXPECT_TRUE(fs::is_fifo(scratch_ / "fifo"));
}

TEST_P(DeliveryTest, ALinkStaysAndWhatItNamesKeepsItsMode) {
  scratch_.MakeFile("named", "old");
  ASSERT_EQ(::chmod((scratch_ / "named").c_str(), 0606), 0);
  fs::create_symlink("named", scratch_ / "target");
  ASSERT_TRUE(Deliver("target")) << GetSystemErrorText().GetText();
  EXPECT_TRUE(fs::is_symlink(scratch_ / "target"));
  EXPECT_EQ(Content("named"), kNew);
  EXPECT_EQ(Look("named").st_mode & 0777U, 0606U);
}

TEST_P(DeliveryTest, AFileOfSeveralNamesIsWrittenUnderAllOfThem) {
  scratch_.MakeFile("target", "old");
  fs::create_hard_link(scratch_ / "target", scratch_ / "other");
  ASSERT_TRUE(Deliver("target"));
  EXPECT_EQ(Content("other"), kNew);
}

TEST_P(DeliveryTest, AFileOfSomebodyElseKeepsOwnerAndMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chown((scratch_ / "target").c_str(), 1, 1), 0);
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0666), 0);
  ASSERT_TRUE(Deliver("target"));
  EXPECT_EQ(Look("target").st_uid, 1U);
  EXPECT_EQ(Look("target").st_mode & 0777U, 0666U);
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, AReplacedFileKeepsGroupAndMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to any group";
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chown((scratch_ / "target").c_str(), 0, 1234), 0);
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0640), 0);
  const ino_t before = Look("target").st_ino;
  ASSERT_TRUE(Deliver("target"));
  EXPECT_EQ(Look("target").st_gid, 1234U);
  EXPECT_EQ(Look("target").st_mode & 0777U, 0640U);
  EXPECT_NE(Look("target").st_ino, before) << "it was to be replaced";
}

TEST_P(DeliveryTest, AGroupThatCannotBeGivenIsKeptByWritingInPlace) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file to any group";
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chown((scratch_ / "target").c_str(), AsNobody::kNobody, 1234), 0);
  GiveToNobody(scratch_.GetPath());
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0640), 0);
  const ino_t before = Look("target").st_ino;
  const AsNobody nobody;
  ASSERT_TRUE(Deliver("target")) << GetSystemErrorText().GetText();
  EXPECT_EQ(Look("target").st_gid, 1234U);
  EXPECT_EQ(Look("target").st_ino, before);
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, ADirectoryThatGivesItsGroupGivesItToANewFile) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a directory to any group";
  ASSERT_EQ(::chown(scratch_.GetPath().c_str(), 0, 1234), 0);
  ASSERT_EQ(::chmod(scratch_.GetPath().c_str(), 02770), 0);
  ASSERT_TRUE(Deliver("target"));
  EXPECT_EQ(Look("target").st_gid, 1234U);
}

TEST_P(DeliveryTest, ADirectoryThatTakesNoNewFilesHasItsFileWrittenInPlace) {
  scratch_.MakeFile("target", "old");
  GiveToNobody(scratch_ / "target");
  ASSERT_EQ(::chmod(scratch_.GetPath().c_str(), 0555), 0);
  const AsNobody nobody;
  const bool done = Deliver("target");
  ::chmod(scratch_.GetPath().c_str(), 0755);
  ASSERT_TRUE(done) << GetSystemErrorText().GetText();
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, AFolderNamedLikeOursIsLikeAnyOther) {
  ASSERT_EQ(::mkdir((scratch_ / "orugui-notes").c_str(), 0700), 0);
  scratch_.MakeFile("orugui-notes/target", "old");
  const ino_t before = Look("orugui-notes/target").st_ino;
  ASSERT_TRUE(Deliver("orugui-notes/target"));
  EXPECT_NE(Look("orugui-notes/target").st_ino, before) << "it was to be replaced";
  EXPECT_EQ(Content("orugui-notes/target"), kNew);
}

// The directory's default list denies new files to everybody but the owner.
TEST_P(DeliveryTest, ANewFileGetsNoMorePermissionsThanItsDirectorysListAllows) {
  if (!SetAccessList(scratch_.GetPath(), kDefaultList, {{kOwner, 7}, {kGroup, 0}, {kOthers, 0}})) {
    GTEST_SKIP() << "the file system takes no lists: " << std::strerror(errno);
  }
  const FileMask mask(022);
  ASSERT_TRUE(Deliver("target")) << GetSystemErrorText().GetText();
  EXPECT_EQ(Look("target").st_mode & 0777U, 0600U);
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, ANewFileGetsTheNamedUsersOfItsDirectorysList) {
  const AccessList list = {{kOwner, 7}, {kUser, 5, 1}, {kGroup, 0}, {kMask, 7}, {kOthers, 0}};
  if (!SetAccessList(scratch_.GetPath(), kDefaultList, list)) {
    GTEST_SKIP() << "the file system takes no lists: " << std::strerror(errno);
  }
  ASSERT_TRUE(Deliver("target"));
  scratch_.MakeFile("like any other", "");
  EXPECT_EQ(GetAccessList(scratch_ / "target", kAccessList),
            GetAccessList(scratch_ / "like any other", kAccessList));
  EXPECT_EQ(Look("target").st_mode & 0777U, Look("like any other").st_mode & 0777U);
}

// Six hundred named users: more than a page.
TEST(DeliveryOfListsTest, ANewFileGetsALongListOfItsDirectory) {
  const ScratchDirectory scratch("/dev/shm");
  AccessList list = {{kOwner, 7}};
  for (std::uint32_t user = 1; user <= 600; ++user) list.push_back({kUser, 4, user});
  list.insert(list.end(), {{kGroup, 0}, {kMask, 7}, {kOthers, 0}});
  if (!SetAccessList(scratch.GetPath(), kDefaultList, list)) {
    GTEST_SKIP() << "the file system takes no such list: " << std::strerror(errno);
  }
  FileWriter writer;
  EXPECT_TRUE(writer.OpenStaged(scratch.FileOf("target"))) << GetSystemErrorText().GetText();
  EXPECT_TRUE(writer.Close());
  EXPECT_GT(::getxattr((scratch / "target").c_str(), kAccessList, nullptr, 0), 4800);
}

// The directory's list is for new files: a file without a list has none afterwards either.
TEST_P(DeliveryTest, AReplacedFileGetsNoListFromItsDirectory) {
  scratch_.MakeFile("target", "old");
  ASSERT_EQ(::chmod((scratch_ / "target").c_str(), 0604), 0);
  const AccessList list = {{kOwner, 7}, {kUser, 7, 1}, {kGroup, 7}, {kMask, 7}, {kOthers, 7}};
  if (!SetAccessList(scratch_.GetPath(), kDefaultList, list)) {
    GTEST_SKIP() << "the file system takes no lists: " << std::strerror(errno);
  }
  ASSERT_TRUE(Deliver("target"));
  EXPECT_TRUE(GetAccessList(scratch_ / "target", kAccessList).empty());
  EXPECT_EQ(Look("target").st_mode & 0777U, 0604U);
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, AFileWithAListKeepsIt) {
  scratch_.MakeFile("target", "old");
  const AccessList list = {{kOwner, 6}, {kUser, 4, 1}, {kGroup, 0}, {kMask, 4}, {kOthers, 0}};
  if (!SetAccessList(scratch_ / "target", kAccessList, list)) {
    GTEST_SKIP() << "the file system takes no lists: " << std::strerror(errno);
  }
  const std::string before = GetAccessList(scratch_ / "target", kAccessList);
  ASSERT_TRUE(Deliver("target"));
  EXPECT_EQ(GetAccessList(scratch_ / "target", kAccessList), before);
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, AnEmptyFileIsWrittenItself) {
  scratch_.MakeFile("target", "");
  const ino_t before = Look("target").st_ino;
  ASSERT_TRUE(Deliver("target"));
  EXPECT_EQ(Look("target").st_ino, before);
  EXPECT_EQ(Content("target"), kNew);
}

TEST_P(DeliveryTest, ADirectoryIsNoTarget) {
  ASSERT_EQ(::mkdir((scratch_ / "target").c_str(), 0700), 0);
  EXPECT_FALSE(Deliver("target"));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
}

}  // namespace
}  // namespace OruGuiBase

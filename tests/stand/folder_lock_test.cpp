#include "stand/folder_lock.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "stand/stand.h"
#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

using Result = FolderLock::Result;

TEST(FolderLockTest, KeepsAFolderForOne) {
  const Folder folder;
  std::string error;
  auto first = std::make_unique<FolderLock>();
  ASSERT_EQ(first->Take(folder.Path(), error), Result::Taken) << error;
  FolderLock second;
  EXPECT_EQ(second.Take(folder.Path(), error), Result::InUse);
  EXPECT_EQ(error, folder.Path() + " is in use by process " + std::to_string(getpid()));
  first.reset();
  FolderLock third;
  EXPECT_EQ(third.Take(folder.Path(), error), Result::Taken) << error;
}

TEST(FolderLockTest, TakesAFileThatNobodyHolds) {
  const Folder folder;
  std::ofstream(folder.Path("lock")) << "12345678901234567890 and more\n";
  std::string error;
  FolderLock lock;
  EXPECT_EQ(lock.Take(folder.Path(), error), Result::Taken) << error;
  std::string line;
  std::getline(std::ifstream(folder.Path("lock")), line);
  EXPECT_EQ(line, std::to_string(getpid()));
}

TEST(FolderLockTest, SaysWhyAFolderCannotBeLocked) {
  const Folder folder;
  std::string error;
  FolderLock lock;
  EXPECT_EQ(lock.Take(folder.Path("none"), error), Result::Failed);
  EXPECT_EQ(error, folder.Path("none/lock") + ": No such file or directory");
}

TEST(FolderLockTest, RefusesTheFolderOfAnotherUserWhereEverybodyCanWrite) {
  const Folder folder;
  const std::string state = folder.Path("state");
  std::string error;
  ASSERT_TRUE(MakeFolder(state, error)) << error;
  if (chown(state.c_str(), 65534, 65534) != 0) GTEST_SKIP() << "needs a superuser";
  EXPECT_TRUE(MakeFolder(state, error)) << error;
  ASSERT_EQ(chmod(folder.Path().c_str(), 01777), 0);
  EXPECT_FALSE(MakeFolder(state, error));
  EXPECT_EQ(error, state + ": belongs to another user, who may replace what is written there");
}

TEST(FolderLockTest, RefusesAFolderBelowThatOfAnotherUserAndTheirLinks) {
  const Folder folder;
  const std::string state = folder.Path("theirs/state");
  const std::string link = folder.Path("link");
  std::filesystem::create_directories(state);
  std::filesystem::create_directory(folder.Path("mine"));
  std::filesystem::create_symlink("mine", link);
  if (lchown(link.c_str(), 65534, 65534) != 0) GTEST_SKIP() << "needs a superuser";
  ASSERT_EQ(chown(state.c_str(), 65534, 65534), 0);
  ASSERT_EQ(chown(folder.Path("theirs").c_str(), 65534, 65534), 0);
  std::string error;
  EXPECT_FALSE(MakeFolder(state, error));
  EXPECT_FALSE(MakeFolder(link + "/", error));
  EXPECT_TRUE(MakeFolder(folder.Path("mine"), error)) << error;
}

TEST(FolderLockTest, KeepsAFolderForOneEnvironment) {
  const Folder folder;
  Options options;
  options.folder = folder.Path("state");
  std::string error;
  FolderLock lock;
  ASSERT_TRUE(MakeFolder(options.folder, error)) << error;
  ASSERT_EQ(lock.Take(options.folder, error), Result::Taken) << error;
  Stand stand(options);
  EXPECT_FALSE(stand.Start(error));
  EXPECT_EQ(stand.GetStartFailure(), StartFailure::FolderInUse);
  EXPECT_THAT(error, testing::HasSubstr("is in use by process"));
}

}  // namespace
}  // namespace CryptStand

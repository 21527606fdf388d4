#include "tests/support/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdlib.h>

namespace TestSupport {
namespace {

using ::testing::ElementsAre;

TEST(ScratchDirectory, RemovesItsContentsAtItsEnd) {
  std::filesystem::path path;
  {
    const ScratchDirectory scratch;
    scratch.Make("file", "content");
    EXPECT_EQ(scratch.Read("file"), "content");
    path = scratch.Path("file");
  }
  EXPECT_FALSE(std::filesystem::exists(path.parent_path()));
}

TEST(ScratchDirectory, ProvidesTheTemporaryDirectoryAndRestoresTheOldOne) {
  const std::filesystem::path before = std::filesystem::temp_directory_path();
  {
    const ScratchDirectory scratch;
    EXPECT_EQ(std::filesystem::temp_directory_path(), scratch.Path("temporary"));
  }
  EXPECT_EQ(std::filesystem::temp_directory_path(), before);
}

TEST(ScratchDirectory, FailsTheTestForARemainingTemporaryFile) {
  auto scratch = std::make_unique<ScratchDirectory>();
  scratch->Make("temporary/left", "");
  EXPECT_THAT(scratch->GetTemporaryNames(), ElementsAre("left"));
  EXPECT_NONFATAL_FAILURE(scratch.reset(), "left a temporary file: left");
}

TEST(ScratchDirectory, CanBeWithoutATemporaryDirectory) {
  const ScratchDirectory scratch;
  scratch.BreakTemporary();
  EXPECT_THAT(scratch.GetTemporaryNames(), ElementsAre());
  EXPECT_FALSE(scratch.Exists("temporary"));
}

TEST(ReadFile, FailsTheTestForAMissingFile) {
  EXPECT_NONFATAL_FAILURE(ReadFile("no/such/file"), "could not read");
}

}  // namespace
}  // namespace TestSupport

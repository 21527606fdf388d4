#include "security/ber/source.h"

#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

constexpr const char* kChanged = "The file changed while it was read";
constexpr std::uint32_t kSize = 1000;

class FileSourceTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(input_.Open(source_, OruOssSec::FileSource::Access::Onwards)) << GetReason();
    ASSERT_TRUE(input_.ReadNext(bytes_.data(), kSize / 2, got_));
    // Longer than a tick of the file system's clock.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  bool ReadRest() { return input_.ReadNext(bytes_.data(), kSize, got_); }
  // In place and at the same size, as a database writes.
  void RewriteSource() const {
    const int handle = ::open(scratch_.Path("source").c_str(), O_WRONLY);
    EXPECT_EQ(::write(handle, "changed", 7), 7);
    ::close(handle);
  }

  ScratchDirectory scratch_;
  File source_ = scratch_.Make("source", std::string(kSize, 's'));
  OruOssSec::FileSource input_;
  std::vector<std::uint8_t> bytes_ = std::vector<std::uint8_t>(kSize);
  std::uint32_t got_ = 0;
};

TEST_F(FileSourceTest, ReadsAnUnchangedFileToItsEnd) {
  EXPECT_TRUE(ReadRest()) << GetReason();
  EXPECT_EQ(got_, kSize / 2);
  EXPECT_TRUE(input_.IsAtEnd());
}

TEST_F(FileSourceTest, FailsForAFileRewrittenAtTheSameSize) {
  RewriteSource();
  EXPECT_FALSE(ReadRest());
  EXPECT_EQ(GetReason(), kChanged);
}

TEST_F(FileSourceTest, FailsForARewrittenFileWithItsOldTimeOfModification) {
  struct stat before {};
  ASSERT_EQ(::stat(scratch_.Path("source").c_str(), &before), 0);
  RewriteSource();
  const timespec times[] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, scratch_.Path("source").c_str(), times, 0), 0);
  EXPECT_FALSE(ReadRest());
  EXPECT_EQ(GetReason(), kChanged);
}

}  // namespace
}  // namespace SecurityTest

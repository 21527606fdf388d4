#include "security/cms/digest.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

TEST(DigestFile, ReadsAPipeToItsEnd) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkfifo(scratch.Path("fifo").c_str(), 0600), 0);
  std::thread writer([&] { TestSupport::WriteFile(scratch.Path("fifo"), "content"); });
  Blob ofPipe;
  const bool isRead = OruOssSec::DigestFile(scratch.File("fifo"), "SHA-256", ofPipe);
  writer.join();
  Blob ofFile;
  ASSERT_TRUE(isRead && OruOssSec::DigestFile(scratch.Make("file", "content"), "SHA-256", ofFile))
      << GetReason();
  EXPECT_EQ(std::string(ofPipe.GetData(), ofPipe.GetData() + ofPipe.GetSize()),
            std::string(ofFile.GetData(), ofFile.GetData() + ofFile.GetSize()));
}

}  // namespace
}  // namespace SecurityTest

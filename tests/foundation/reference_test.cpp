#include "foundation/reference.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>

#include "tests/support/freed_memory.h"

namespace OruGuiBase {
namespace {

TEST(ReferenceTest, LinkAddsOne) {
  Reference::Count count{1};
  Reference::Link(count);
  EXPECT_EQ(count, 2U);
}

TEST(ReferenceTest, UnlinkReportsTheLastReference) {
  Reference::Count count{2};
  EXPECT_FALSE(Reference::Unlink(count));
  EXPECT_TRUE(Reference::Unlink(count));
  EXPECT_EQ(count, 0U);
}

TEST(ReferenceTest, OnlyACountBelowTwoIsUnshared) {
  EXPECT_FALSE(Reference::IsShared(Reference::Count{0}));
  EXPECT_FALSE(Reference::IsShared(Reference::Count{1}));
  EXPECT_TRUE(Reference::IsShared(Reference::Count{2}));
}

TEST(ReferenceDeathTest, LinkOfAFreedObjectAborts) {
  Reference::Count count{0};
  EXPECT_DEATH(Reference::Link(count), "^Reference::Link: 0x[0-9a-f]+: Invalid reference count \\(1\\)\n$");
}

TEST(ReferenceDeathTest, LinkOfANegativeCountAborts) {
  Reference::Count count{0xFFFFFFF0U};
  EXPECT_DEATH(Reference::Link(count), "Reference::Link: 0x[0-9a-f]+: Invalid reference count \\(-15\\)");
}

TEST(ReferenceDeathTest, LinkPastTheLargestCountAborts) {
  Reference::Count count{0x7FFFFFFFU};
  EXPECT_DEATH(Reference::Link(count), "Reference::Link: .*Invalid reference count \\(-2147483648\\)");
}

TEST(ReferenceDeathTest, UnlinkOfAFreedObjectAborts) {
  Reference::Count count{0};
  EXPECT_DEATH(static_cast<void>(Reference::Unlink(count)),
               "^Reference::Unlink: 0x[0-9a-f]+: Invalid reference count \\(-1\\)\n$");
}

TEST(ReferenceDeathTest, DebugAbortPrintsItsMessageAndAborts) {
  EXPECT_EXIT(DebugAbort("%s at %d", "Broken", 7), testing::KilledBySignal(SIGABRT), "^Broken at 7\n$");
}

TEST(ReferenceDeathTest, DebugAbortCutsALongMessage) {
  EXPECT_DEATH(DebugAbort("%5000d", 1), "^ {1000,1023}\n$");
}

TEST(ParticleTest, ABlockHasItsSize) {
  constexpr std::size_t kSize = 1000;
  void* const block = AllocParticle(kSize);
  ASSERT_NE(block, nullptr);
  std::memset(block, 0xA5, kSize);
  FreeParticle(kSize, block);
}

TEST(ParticleTest, FreeingNullDoesNothing) {
  WatchFreedMemory("nothing");
  FreeParticle(16, nullptr);
  StopWatching();
  EXPECT_EQ(GetWatchedBlocks(), 0);
}

TEST(ParticleTest, WipeMemoryClearsExactlyItsRange) {
  unsigned char bytes[] = {1, 2, 3, 4, 5};
  WipeMemory(bytes + 1, 3);
  const unsigned char expected[] = {1, 0, 0, 0, 5};
  EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
}

TEST(ParticleTest, WipeMemoryOfNothingChangesNothing) {
  char block[] = "kept";
  WipeMemory(block, 0);
  WipeMemory(nullptr, 0);
  EXPECT_STREQ(block, "kept");
}

}  // namespace
}  // namespace OruGuiBase

#include "foundation/clock.h"

#include <chrono>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <thread>

namespace OruGuiBase {
namespace {

TEST(ClockTest, TicksCountMilliseconds) {
  const auto start = std::chrono::steady_clock::now();
  const std::uint32_t before = GetClockTicks();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const std::uint32_t passed = GetClockTicks(before);
  const auto measured = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed, 19U);
  EXPECT_LE(passed, std::chrono::duration_cast<std::chrono::milliseconds>(measured).count() + 1);
}

TEST(ClockTest, ElapsedTicksAreCorrectAcrossTheWrap) {
  // Counts of a while ago, of which one at least lies on the other side of the wrap.
  for (const std::uint32_t ago : {1000U, 0x80000000U, 0xF0000000U}) {
    const std::uint32_t passed = GetClockTicks(GetClockTicks() - ago);
    EXPECT_GE(passed, ago);
    EXPECT_LT(passed, ago + 10000);
  }
}

TEST(RandomTest, NumbersLieInTheRangeAndReachBothEnds) {
  std::set<std::uint64_t> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(GetPseudoRandomNumberEx(5, 9));
  EXPECT_EQ(seen, (std::set<std::uint64_t>{5, 6, 7, 8, 9}));
}

TEST(RandomTest, ARangeOfOneGivesIt) {
  EXPECT_EQ(GetPseudoRandomNumberEx(7, 7), 7U);
}

TEST(RandomTest, AReversedRangeGivesItsLowEnd) {
  EXPECT_EQ(GetPseudoRandomNumberEx(9, 5), 9U);
}

TEST(RandomTest, TheFullRangeIsUsed) {
  std::set<std::uint64_t> seen;
  bool large = false;
  for (int i = 0; i < 100; ++i) {
    const std::uint64_t number = GetPseudoRandomNumberEx(0, std::numeric_limits<std::uint64_t>::max());
    large = large || number > std::numeric_limits<std::uint32_t>::max();
    seen.insert(number);
  }
  EXPECT_EQ(seen.size(), 100U);
  EXPECT_TRUE(large);
}

TEST(RandomTest, ThreadsDrawDifferentNumbers) {
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  std::thread([&first] { first = GetPseudoRandomNumberEx(0, kMax); }).join();
  std::thread([&second] { second = GetPseudoRandomNumberEx(0, kMax); }).join();
  EXPECT_NE(first, second);
}

}  // namespace
}  // namespace OruGuiBase

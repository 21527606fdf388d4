#include "foundation/array.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utility>

#include "foundation/ansistr.h"
#include "foundation/trace.h"
#include "foundation/val.h"
#include "tests/foundation/failing_memory.h"
#include "tests/foundation/memory_limit.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/recording_sink.h"

namespace OruGuiBase {
namespace {

using Numbers = Array<std::uint32_t>;

Numbers Filled(std::uint32_t count) {
  Numbers numbers;
  numbers.Reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) numbers.Append(i);
  return numbers;
}

TEST(ArrayTest, EmptyArrayAllocatesNothing) {
  Numbers numbers;
  EXPECT_EQ(numbers.GetImp(), nullptr);
  EXPECT_EQ(numbers.GetCount(), 0U);
  numbers.Reserve(0);
  EXPECT_EQ(numbers.GetImp(), nullptr);
}

TEST(ArrayTest, FirstElementOfANullArrayAllocatesEleven) {
  Numbers numbers;
  numbers.Append(7);
  EXPECT_EQ(CapacityOf(numbers), 11U);
  EXPECT_EQ(numbers.GetCount(), 1U);
  EXPECT_EQ(numbers[0], 7U);
}

// By 10 below 20 elements, by half below 100000 and by 50000 from there on.
TEST(ArrayTest, AFullBlockGrowsByItsCount) {
  const struct {
    std::uint32_t full;
    std::uint32_t capacity;
    const char* reason;
  } kRows[] = {
      {11, 22, "10 more at 12"},
      {18, 29, "10 more at 19, the last of the small ones"},
      {19, 30, "half of 20 more, which is 10 too"},
      {20, 31, "half of 21, the remainder dropped"},
      {100, 151, "half of 101"},
      {99998, 149998, "half of 99999"},
      {99999, 150000, "50000 more at 100000"},
      {200000, 250001, "50000 more from there on"},
  };
  for (const auto& row : kRows) {
    Numbers numbers = Filled(row.full);
    ASSERT_EQ(CapacityOf(numbers), row.full);
    numbers.Append(1);
    EXPECT_EQ(CapacityOf(numbers), row.capacity) << row.reason;
    EXPECT_EQ(numbers.GetCount(), row.full + 1) << row.reason;
    EXPECT_EQ(numbers[row.full - 1], row.full - 1) << row.reason;
  }
}

TEST(ArrayTest, AppendWithinTheCapacityStaysInPlace) {
  Numbers numbers = Filled(1);
  numbers.Reserve(5);
  const Numbers::Imp* const block = numbers.GetImp();
  for (std::uint32_t i = 0; i < 4; ++i) numbers.Append(i);
  EXPECT_EQ(numbers.GetImp(), block);
}

TEST(ArrayTest, AppendToASharedArrayLeavesTheOtherAlone) {
  Numbers numbers = Filled(3);
  numbers.Reserve(10);
  const Numbers copy(numbers);
  numbers.Append(9);
  EXPECT_THAT(ElementsOf(numbers), testing::ElementsAre(0, 1, 2, 9));
  EXPECT_THAT(ElementsOf(copy), testing::ElementsAre(0, 1, 2));
}

TEST(ArrayTest, AppendOfAnElementOfItsOwnIsSafe) {
  Array<AnsiStr> texts;
  texts.Append("first");
  for (int i = 0; i < 30; ++i) texts.Append(texts[0]);
  EXPECT_EQ(texts[30], "first");
  EXPECT_EQ(texts[0].GetImp()->refCount, 31U);
}

TEST(ArrayTest, WritingASharedArrayLeavesTheOtherAlone) {
  Numbers numbers = Filled(3);
  const Numbers copy(numbers);
  numbers.At(1) = 50;
  EXPECT_EQ(numbers[1], 50U);
  EXPECT_EQ(copy[1], 1U);
  EXPECT_EQ(copy.GetImp()->refCount, 1U);
}

TEST(ArrayTest, AccessAtTheCountGivesAnEmptyElementAndKeepsTheCount) {
  Array<Val> values;
  values.Append(Val("text"));
  EXPECT_TRUE(values.At(1).IsNil());
  EXPECT_EQ(values.GetCount(), 1U);
  EXPECT_TRUE(values.At(1000).IsNil());
  EXPECT_EQ(values.GetCount(), 1U);
}

TEST(ArrayTest, AccessPastTheCountClearsWhatWasWrittenThereBefore) {
  Array<Val> values;
  values.At(5) = Val("left over");
  EXPECT_TRUE(values.At(0).IsNil());
  EXPECT_EQ(values.GetCount(), 0U);
}

TEST(ArrayTest, AccessPastTheEndGrowsAFullBlock) {
  Numbers numbers = Filled(4);
  ASSERT_EQ(CapacityOf(numbers), 4U);
  EXPECT_EQ(numbers.At(4), 0U);
  EXPECT_EQ(CapacityOf(numbers), 15U);
  EXPECT_EQ(numbers.GetCount(), 4U);
}

TEST(ArrayTest, AccessAfterPrepareAllocatesNothing) {
  Numbers numbers = Filled(2);
  const Numbers copy(numbers);
  ASSERT_TRUE(numbers.Prepare(2));
  {
    const FailingMemory memory(0);
    numbers.Append(7);
  }
  EXPECT_EQ(numbers[2], 7U);
  EXPECT_EQ(copy.GetCount(), 2U);
}

TEST(ArrayTest, PrepareReportsAllocationFailureAndChangesNothing) {
  Numbers numbers = Filled(2);
  const Numbers copy(numbers);
  const Numbers::Imp* const block = numbers.GetImp();
  RecordingSink sink(4);
  bool prepared[2] = {true, true};
  {
    const FailingMemory memory(0);
    prepared[0] = numbers.Prepare(0);
    prepared[1] = numbers.Prepare(2);
  }
  EXPECT_FALSE(prepared[0] || prepared[1]);
  EXPECT_EQ(sink.events.size(), 2U);
  EXPECT_EQ(numbers.GetImp(), block);
  EXPECT_THAT(ElementsOf(numbers), testing::ElementsAre(0, 1));
}

TEST(ArrayTest, ReadingPastTheCountGivesAnEmptyElement) {
  const Numbers numbers = Filled(2);
  EXPECT_EQ(std::as_const(numbers)[2], 0U);
  EXPECT_EQ(Numbers()[0], 0U);
}

TEST(ArrayTest, ReserveAllocatesExactlyAndKeepsTheElements) {
  Numbers numbers = Filled(3);
  numbers.Reserve(8);
  EXPECT_EQ(CapacityOf(numbers), 8U);
  EXPECT_THAT(ElementsOf(numbers), testing::ElementsAre(0, 1, 2));
  numbers.Reserve(2);
  EXPECT_EQ(CapacityOf(numbers), 8U);
}

TEST(ArrayTest, ReserveBelowTheCountOfASharedArrayKeepsAllElements) {
  Numbers numbers = Filled(6);
  const Numbers copy(numbers);
  numbers.Reserve(2);
  EXPECT_THAT(ElementsOf(numbers), testing::ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST(ArrayTest, AssignmentLinksAndReleases) {
  Numbers numbers = Filled(3);
  const Numbers copy = numbers;
  const Numbers& alias = numbers;
  numbers = alias;
  EXPECT_EQ(copy.GetImp()->refCount, 2U);
  numbers = Filled(1);
  EXPECT_EQ(copy.GetImp()->refCount, 1U);
  numbers = copy;
  numbers.Clear();
  EXPECT_EQ(numbers.GetImp(), nullptr);
  EXPECT_EQ(copy.GetCount(), 3U);
}

TEST(ArrayTest, FreeingTheBlockReleasesItsElements) {
  const AnsiStr text("counted");
  {
    Array<AnsiStr> texts;
    texts.Append(text);
    texts.At(1) = text;
    EXPECT_EQ(text.GetImp()->refCount, 3U);
  }
  EXPECT_EQ(text.GetImp()->refCount, 1U);
}

TEST(ArrayTest, GrowingMovesElementsWithoutCountingThem) {
  const AnsiStr text("counted");
  Array<AnsiStr> texts;
  for (int i = 0; i < 12; ++i) texts.Append(text);
  EXPECT_EQ(text.GetImp()->refCount, 13U);
}

// Shows on standard error what is traced, where a death test can see it.
class LoudSink final : public OruGuiTrace::ITraceSink {
 public:
  void OnTrace(std::uint32_t, std::uint32_t, const char*, std::uint32_t, const char* text) override {
    std::fprintf(stderr, "traced: %s\n", text);
  }
};

TEST(ArrayDeathTest, ReportsAndAbortsWhenTheCountPasses32Bits) {
  const auto run = [] {
    LoudSink sink;
    OruGuiTrace::SetTraceSink(&sink, 0);
    Numbers numbers = Filled(1);
    numbers.GetImp()->count = 0xFFFFFFFFU;
    numbers.At(0xFFFFFFFFU) = 1;
  };
  EXPECT_DEATH(run(), "traced: Array: 4294967295 elements and 1 more pass 32 bits\nUInt32 overflow\n$");
}

TEST(ArrayDeathTest, ReportsAndAbortsOnAllocationFailure) {
  const auto run = [] {
    LoudSink sink;
    OruGuiTrace::SetTraceSink(&sink, 0);
    LimitMemory();
    Numbers().Reserve(kTooMuch / sizeof(std::uint32_t));
  };
  EXPECT_DEATH(run(),
               "traced: Array: no memory for 402653184 elements, 0 in use\nCould not allocate array\n$");
}

}  // namespace
}  // namespace OruGuiBase

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "tests/foundation/memory_limit.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

AnsiStr MakeObject(std::uint32_t members) {
  std::string text = "{";
  for (std::uint32_t i = 0; i < members; ++i) {
    const std::string number = std::to_string(i);
    text += (i == 0 ? "\"member" : ",\"member") + number + "\":" + number;
  }
  return AnsiStr(text + "}");
}

// Keys of one hash for the map's buckets: every choice between the two halves "Aa" and "BB".
AnsiStr MakeCollidingObject(std::uint32_t members) {
  std::string text = "{";
  for (std::uint32_t i = 0; i < members; ++i) {
    text += i == 0 ? "\"" : ",\"";
    for (unsigned bit = 0; bit < 20; ++bit) text += (i >> bit & 1) != 0 ? "Aa" : "BB";
    text += "\":0";
  }
  return AnsiStr(text + "}");
}

double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Processor time of this thread, so that moments without the processor do not count; the best of three.
double SecondsToLoad(const AnsiStr& text, std::uint32_t members) {
  double best = 1e9;
  for (int round = 0; round < 3; ++round) {
    Val value;
    AnsiStr error;
    const double start = ThreadSeconds();
    EXPECT_TRUE(JSON2Val(text, value, error)) << error.View();
    best = std::min(best, ThreadSeconds() - start);
    EXPECT_EQ(value.AsMap().GetCount(), members);
  }
  return best;
}

// 64 times the members take 64 times as long, a few times more once they leave the processor's cache; a
// loader that walks its buckets takes 4096 times. Between the two lies a wide gap, for a machine that does
// other work.
constexpr std::uint32_t kFew = 1U << 11;
constexpr std::uint32_t kMany = kFew * 64;
constexpr double kLimit = 64 * 16;

TEST(JSONLoadTest, LoadingTakesTimeLinearInTheMembers) {
  EXPECT_LT(SecondsToLoad(MakeObject(kMany), kMany), SecondsToLoad(MakeObject(kFew), kFew) * kLimit);
}

TEST(JSONLoadTest, LoadingStaysLinearWhenAllKeysFallIntoOneBucket) {
  EXPECT_LT(SecondsToLoad(MakeCollidingObject(kMany), kMany),
            SecondsToLoad(MakeCollidingObject(kFew), kFew) * kLimit);
}

TEST(JSONLoadTest, AMillionDistinctKeysAreLoaded) {
  if (IsMemorySanitized()) GTEST_SKIP() << "two million blocks take a sanitizer seconds";
  constexpr std::uint32_t kMillion = 1000000;
  Val value;
  AnsiStr error;
  ASSERT_TRUE(JSON2Val(MakeObject(kMillion), value, error));
  const KVMap map = value.AsMap();
  EXPECT_EQ(map.GetCount(), kMillion);
  EXPECT_EQ(map.GetKeys()[kMillion - 1], "member999999");
  EXPECT_EQ(map.GetValues()[kMillion - 1].AsInteger(), kMillion - 1);
}

TEST(JSONLoadTest, ALongStringIsReadAndWrittenCompletely) {
  const std::string content(10 << 20, 'Q');
  Val value;
  AnsiStr error;
  ASSERT_TRUE(JSON2Val(AnsiStr("{\"data\":\"" + content + "\"}"), value, error));
  EXPECT_EQ(value.AsMap().Get("data").AsString().View(), content);
  AnsiStr text;
  ASSERT_TRUE(Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true));
  EXPECT_EQ(text.GetLength(), content.size() + 11);
}

}  // namespace
}  // namespace OruGuiBase

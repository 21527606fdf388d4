#include <algorithm>
#include <chrono>
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

// Best of three, so that a moment without the processor does not count.
double SecondsToLoad(const AnsiStr& text, std::uint32_t members) {
  double best = 1e9;
  for (int round = 0; round < 3; ++round) {
    Val value;
    AnsiStr error;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(JSON2Val(text, value, error)) << error.View();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(value.AsMap().GetCount(), members);
    best = std::min(best, passed.count());
  }
  return best;
}

TEST(JSONLoadTest, LoadingTakesTimeLinearInTheMembers) {
  // Eight times the members take eight times as long; a loader that walked the buckets would take 64 times.
  constexpr std::uint32_t kFew = 1U << 12;
  constexpr std::uint32_t kMany = kFew * 8;
  const double few = SecondsToLoad(MakeObject(kFew), kFew);
  const double many = SecondsToLoad(MakeObject(kMany), kMany);
  EXPECT_LT(many, few * 24);
}

TEST(JSONLoadTest, LoadingStaysLinearWhenAllKeysFallIntoOneBucket) {
  constexpr std::uint32_t kFew = 1U << 11;
  constexpr std::uint32_t kMany = kFew * 8;
  const AnsiStr text = MakeCollidingObject(kMany);
  const double few = SecondsToLoad(MakeCollidingObject(kFew), kFew);
  const double many = SecondsToLoad(text, kMany);
  EXPECT_LT(many, few * 24);
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

TEST(JSONLoadTest, ALongTextIsReadAndWrittenWhole) {
  const std::string content(10 << 20, 'Q');
  Val value;
  AnsiStr error;
  ASSERT_TRUE(JSON2Val(AnsiStr("{\"data\":\"" + content + "\"}"), value, error));
  EXPECT_EQ(value.AsMap().Get("data").AsString().View(), content);
  AnsiStr text;
  ASSERT_TRUE(Val2JSON(value, text, error, false, true));
  EXPECT_EQ(text.GetLength(), content.size() + 11);
}

}  // namespace
}  // namespace OruGuiBase

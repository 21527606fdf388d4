#include "foundation/ansistr.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <utility>

#include "tests/foundation/memory_limit.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/recording_sink.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

std::uint32_t CountOf(const AnsiStr& text) {
  return text.GetImp()->refCount.load();
}

TEST(AnsiStrTest, EmptyTextAllocatesNothing) {
  EXPECT_EQ(AnsiStr().GetImp(), nullptr);
  EXPECT_EQ(AnsiStr("").GetImp(), nullptr);
  EXPECT_EQ(AnsiStr(static_cast<const char*>(nullptr)).GetImp(), nullptr);
  EXPECT_EQ(AnsiStr("abc", 0).GetImp(), nullptr);
  EXPECT_EQ(AnsiStr(AnsiSubStr{}).GetImp(), nullptr);
}

TEST(AnsiStrTest, TextOfANullHandleIsTheEmptyString) {
  const AnsiStr text;
  EXPECT_STREQ(text.GetText(), "");
  EXPECT_EQ(text.GetText(), AnsiStr::Imp::GetEmpty());
  EXPECT_EQ(text.GetLength(), 0U);
  EXPECT_TRUE(text.IsEmpty());
}

TEST(AnsiStrTest, ConstructorsKeepTheBytes) {
  EXPECT_EQ(AnsiStr("abc"), "abc");
  EXPECT_EQ(AnsiStr("abcdef", 3), "abc");
  EXPECT_EQ(AnsiStr("abc"sv), "abc");
  EXPECT_EQ(AnsiStr(AnsiSubStr{"abcdef", 2}), "ab");
}

// The length does not count it.
TEST(AnsiStrTest, TextEndsInNul) {
  const AnsiStr text("abcdef", 3);
  EXPECT_STREQ(text.GetText(), "abc");
}

TEST(AnsiStrTest, NulBytesAreContent) {
  const AnsiStr text("a\0b"sv);
  EXPECT_EQ(text.GetLength(), 3U);
  EXPECT_NE(text, "a");
  EXPECT_EQ(text, AnsiStr("a\0b"sv));
  EXPECT_NE(text, AnsiStr("a\0c"sv));
}

TEST(AnsiStrTest, ALeadingNulByteIsContentToo) {
  AnsiStr text("\0bc"sv);
  EXPECT_EQ(text.GetLength(), 3U);
  text += "d";
  EXPECT_EQ(text.View(), "\0bcd"sv);
}

TEST(AnsiStrTest, UnknownLengthIsCountedWhenAskedForAndStored) {
  char* buffer = nullptr;
  const AnsiStr text(32, buffer);
  std::memcpy(buffer, "twelve chars", sizeof "twelve chars");
  EXPECT_EQ(text.GetImp()->length, 0U);
  EXPECT_EQ(text.GetLength(), 12U);
  EXPECT_EQ(text.GetImp()->length, 12U);
}

TEST(AnsiStrTest, ABufferLeftEmptyReadsAsEmpty) {
  char* buffer = nullptr;
  const AnsiStr text(8, buffer);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_STREQ(text.GetText(), "");
}

TEST(AnsiStrTest, ABufferFilledToItsEndIsCountedWhole) {
  char* buffer = nullptr;
  const AnsiStr text(4, buffer);
  std::copy_n("abcd", 4, buffer);
  EXPECT_EQ(text.GetLength(), 4U);
}

TEST(AnsiStrTest, AppendCountsAnUnknownLengthFirst) {
  char* buffer = nullptr;
  AnsiStr text(16, buffer);
  std::memcpy(buffer, "abc", sizeof "abc");
  text += "def";
  EXPECT_EQ(text, "abcdef");
}

TEST(AnsiStrTest, CopiesShareOneRepresentation) {
  const AnsiStr text("abc");
  const AnsiStr copy(text);
  EXPECT_EQ(copy.GetImp(), text.GetImp());
  EXPECT_EQ(CountOf(text), 2U);
}

TEST(AnsiStrTest, TheLastHandleFreesTheRepresentation) {
  const AnsiStr text("abc");
  { const AnsiStr copy(text); }
  EXPECT_EQ(CountOf(text), 1U);
}

TEST(AnsiStrTest, MovingLeavesTheSourceEmpty) {
  AnsiStr text("abc");
  const AnsiStr moved(std::move(text));
  EXPECT_EQ(moved, "abc");
  EXPECT_EQ(CountOf(moved), 1U);
  EXPECT_EQ(text.GetImp(), nullptr);  // NOLINT(bugprone-use-after-move): that is what is tested
}

TEST(AnsiStrTest, SelfAssignmentKeepsTheText) {
  AnsiStr text("abc");
  const AnsiStr& alias = text;
  text = alias;
  EXPECT_EQ(text, "abc");
  EXPECT_EQ(CountOf(text), 1U);
  text = std::move(const_cast<AnsiStr&>(alias));
  EXPECT_EQ(text, "abc");
}

TEST(AnsiStrTest, AssignmentReleasesTheOldText) {
  AnsiStr text("abc");
  const AnsiStr old(text);
  text = AnsiStr("def");
  EXPECT_EQ(CountOf(old), 1U);
  text = "ghi";
  EXPECT_EQ(text, "ghi");
  text = static_cast<const char*>(nullptr);
  EXPECT_TRUE(text.IsEmpty());
}

TEST(AnsiStrTest, AssigningItsOwnTextIsSafe) {
  AnsiStr text("abc");
  text = text.GetText() + 1;
  EXPECT_EQ(text, "bc");
}

TEST(AnsiStrTest, AppendOfNothingChangesNothing) {
  AnsiStr text("abc");
  const AnsiStr copy(text);
  text.Append("xyz", 0);
  text += AnsiStr();
  text += "";
  text += static_cast<const char*>(nullptr);
  EXPECT_EQ(text.GetImp(), copy.GetImp());
}

TEST(AnsiStrTest, AppendToASharedStringLeavesTheOtherAlone) {
  AnsiStr text("abc");
  text.Reserve(100);
  const AnsiStr copy(text);
  text += "def";
  EXPECT_EQ(text, "abcdef");
  EXPECT_EQ(copy, "abc");
}

TEST(AnsiStrTest, AppendWithinTheCapacityStaysInPlace) {
  AnsiStr text("abc");
  text.Reserve(100);
  const AnsiStr::Imp* const before = text.GetImp();
  text += "def";
  EXPECT_EQ(text.GetImp(), before);
  EXPECT_STREQ(text.GetText(), "abcdef");
}

TEST(AnsiStrTest, AppendOfItsOwnTextIsSafe) {
  AnsiStr text("abc");
  for (int i = 0; i < 6; ++i) text += text;
  EXPECT_EQ(text.GetLength(), 3U * 64);
  EXPECT_TRUE(text.View().ends_with("abcabc"));
}

TEST(AnsiStrTest, AppendGrowsGeometrically) {
  AnsiStr text;
  int blocks = 0;
  std::uint32_t capacity = 0;
  for (int i = 0; i < 100000; ++i) {
    text += 'x';
    if (text.GetImp()->capacity != capacity) ++blocks;
    capacity = text.GetImp()->capacity;
  }
  EXPECT_EQ(text.GetLength(), 100000U);
  EXPECT_LT(blocks, 40);
}

TEST(AnsiStrTest, ExtendSizeAddsHalfAndStopsAt32Bits) {
  EXPECT_EQ(AnsiStr::Imp::GetExtendSize(100, /*grow=*/false), 100U);
  EXPECT_EQ(AnsiStr::Imp::GetExtendSize(100, /*grow=*/true), 150U);
  EXPECT_EQ(AnsiStr::Imp::GetExtendSize(0xC0000000U, /*grow=*/true), 0xFFFFFFFFU);
}

TEST(AnsiStrTest, AppendPast32BitsIsReportedAndDropped) {
  // A string that claims the full length without its storage: the append must stop before it reads any of it.
  AnsiStr text("abc");
  const std::uint32_t length = text.GetLength();
  text.GetImp()->length = 0xFFFFFFFFU;
  RecordingSink sink(0);
  text.Append("d", 1);
  ASSERT_EQ(sink.events.size(), 1U);
  EXPECT_EQ(sink.events[0].text, "AnsiStr: 4294967295 bytes and 1 more pass 32 bits");
  EXPECT_EQ(text.GetImp()->length, 0xFFFFFFFFU);
  text.GetImp()->length = length;
  EXPECT_EQ(text, "abc");
}

TEST(AnsiStrTest, PlusJoinsWithoutChangingItsSides) {
  const AnsiStr left("ab");
  const AnsiStr right("cd");
  EXPECT_EQ(left + right, "abcd");
  EXPECT_EQ(left, "ab");
  EXPECT_EQ(AnsiStr() + right, "cd");
}

TEST(AnsiStrTest, AllocGivesNulCharactersOfTheSize) {
  AnsiStr text("old");
  char* const buffer = text.Alloc(4);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(text.View(), "\0\0\0\0"sv);
  std::copy_n("new!", 4, buffer);
  EXPECT_EQ(text, "new!");
}

TEST(AnsiStrTest, AllocLeavesASharerAlone) {
  AnsiStr text("old");
  const AnsiStr copy(text);
  text.Alloc(2);
  EXPECT_EQ(copy, "old");
}

TEST(AnsiStrTest, AllocOfNothingReadsAsEmpty) {
  AnsiStr text("old");
  EXPECT_NE(text.Alloc(0), nullptr);
  EXPECT_TRUE(text.IsEmpty());
}

TEST(AnsiStrTest, ReserveKeepsTheText) {
  AnsiStr text("abc");
  text.Reserve(50);
  EXPECT_EQ(text, "abc");
  EXPECT_EQ(text.GetImp()->capacity, 50U);
  text.Reserve(2);
  EXPECT_EQ(text.GetImp()->capacity, 50U);
}

TEST(AnsiStrTest, ReserveUnsharesTheText) {
  AnsiStr text("abc");
  const AnsiStr copy(text);
  text.Reserve(1);
  EXPECT_NE(text.GetImp(), copy.GetImp());
  EXPECT_EQ(text, "abc");
}

TEST(AnsiStrTest, ToLowerChangesOnlyASCIILetters) {
  AnsiStr text(
      "AZaz[@`{09 \xC3\x84"
      "\xC0");
  text.ToLower();
  EXPECT_EQ(text,
            "azaz[@`{09 \xC3\x84"
            "\xC0");
  EXPECT_TRUE(AnsiStr().ToLower().IsEmpty());
}

TEST(AnsiStrTest, ReplaceChangesEveryOccurrence) {
  AnsiStr text("2024-02-29");
  EXPECT_EQ(text.Replace('-', '.'), "2024.02.29");
  EXPECT_EQ(text.Replace('x', 'y'), "2024.02.29");
  EXPECT_TRUE(AnsiStr().Replace('a', 'b').IsEmpty());
}

TEST(AnsiStrTest, ChangesInPlaceLeaveASharerAlone) {
  const AnsiStr original("AbA");
  AnsiStr lower(original);
  AnsiStr replaced(original);
  AnsiStr cut(original);
  lower.ToLower();
  replaced.Replace('A', 'x');
  cut.Trunc(1);
  EXPECT_EQ(lower, "aba");
  EXPECT_EQ(replaced, "xbx");
  EXPECT_EQ(cut, "A");
  EXPECT_EQ(original, "AbA");
}

TEST(AnsiStrTest, TruncCutsAndNeverLengthens) {
  AnsiStr text("abcdef");
  EXPECT_EQ(text.Trunc(10), "abcdef");
  EXPECT_EQ(text.Trunc(3), "abc");
  EXPECT_STREQ(text.GetText(), "abc");
  EXPECT_EQ(text.Trunc(0).GetImp(), nullptr);
}

TEST(AnsiStrTest, TruncCutsATextOfUnknownLength) {
  char* buffer = nullptr;
  AnsiStr text(16, buffer);
  std::memcpy(buffer, "abcdef", sizeof "abcdef");
  EXPECT_EQ(text.Trunc(2), "ab");
}

TEST(AnsiStrTest, FindStartsAtTheGivenIndex) {
  const AnsiStr text("a.b.c");
  EXPECT_EQ(text.Find('.'), 1U);
  EXPECT_EQ(text.Find('.', 1), 1U);
  EXPECT_EQ(text.Find('.', 2), 3U);
  EXPECT_EQ(text.Find('.', 4), AnsiStr::npos);
  EXPECT_EQ(text.Find('.', 5), AnsiStr::npos);
  EXPECT_EQ(text.Find('.', 0xFFFFFFFFU), AnsiStr::npos);
  EXPECT_EQ(AnsiStr().Find('a'), AnsiStr::npos);
}

TEST(AnsiStrTest, FindIgnoresCaseOnlyOnRequest) {
  const AnsiStr text("xyZ");
  EXPECT_EQ(text.Find('z'), AnsiStr::npos);
  EXPECT_EQ(text.Find('z', 0, /*ignoreCase=*/true), 2U);
  EXPECT_EQ(text.Find('Y', 0, /*ignoreCase=*/true), 1U);
  EXPECT_EQ(text.Find('Y', 2, /*ignoreCase=*/true), AnsiStr::npos);
}

TEST(AnsiStrTest, CompareIsThreeWayOverUnsignedBytes) {
  EXPECT_EQ(AnsiStr::Compare("abc", "abc", /*ignoreCase=*/false), 0);
  EXPECT_LT(AnsiStr::Compare("abc", "abd", /*ignoreCase=*/false), 0);
  EXPECT_GT(AnsiStr::Compare("abd", "abc", /*ignoreCase=*/false), 0);
  EXPECT_LT(AnsiStr::Compare("ab", "abc", /*ignoreCase=*/false), 0);
  EXPECT_GT(AnsiStr::Compare("\x80", "a", /*ignoreCase=*/false), 0);
  EXPECT_EQ(AnsiStr::Compare("", AnsiStr(), /*ignoreCase=*/false), 0);
}

TEST(AnsiStrTest, CompareIgnoresCaseOfASCIILettersOnRequest) {
  EXPECT_NE(AnsiStr::Compare("Text/CSV", "text/csv", /*ignoreCase=*/false), 0);
  EXPECT_EQ(AnsiStr::Compare("Text/CSV", "text/csv", /*ignoreCase=*/true), 0);
  EXPECT_LT(AnsiStr::Compare("TEXT", "text/csv", /*ignoreCase=*/true), 0);
  EXPECT_GT(AnsiStr::Compare("text/xml", "TEXT/CSV", /*ignoreCase=*/true), 0);
  EXPECT_GT(AnsiStr::Compare("\x80", "a", /*ignoreCase=*/true), 0);
  EXPECT_NE(AnsiStr::Compare("[", "{", /*ignoreCase=*/true), 0);
}

TEST(AnsiStrTest, FromImpTakesAReference) {
  const AnsiStr text("abc");
  const AnsiStr other = AnsiStr::FromImp(text.GetImp());
  EXPECT_EQ(CountOf(text), 2U);
  EXPECT_EQ(AnsiStr::FromImp(nullptr).GetImp(), nullptr);
}

TEST(AnsiStrTest, InitCopiesTheSourceAndTerminatesIt) {
  AnsiStr::Imp* const imp = AnsiStr::Imp::Init(10, 3, "abc", 3);
  ASSERT_NE(imp, nullptr);
  EXPECT_EQ(imp->refCount, 1U);
  EXPECT_EQ(imp->capacity, 10U);
  EXPECT_EQ(imp->length, 3U);
  EXPECT_STREQ(imp->Text(), "abc");
  ASSERT_TRUE(Reference::Unlink(imp->refCount));
  AnsiStr::Imp::Free(imp);
}

TEST(AnsiStrTest, InitAllocatesAtLeastTheSizeOfItsSource) {
  AnsiStr::Imp* const imp = AnsiStr::Imp::Init(1, 2, "abcd", 4);
  ASSERT_NE(imp, nullptr);
  EXPECT_EQ(imp->capacity, 4U);
  ASSERT_TRUE(Reference::Unlink(imp->refCount));
  AnsiStr::Imp::Free(imp);
}

TEST(AnsiStrDeathTest, InitReturnsNullOnAllocationFailure) {
  const auto run = [] {
    LimitMemory();
    AnsiStr text("old");
    const bool isNull = AnsiStr::Imp::Init(kTooMuch, 0, nullptr, 0) == nullptr;
    std::_Exit(isNull && text.Alloc(kTooMuch) == nullptr && text.IsEmpty() ? 0 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(AnsiStrDeathTest, AbortsOnAllocationFailure) {
  const auto run = [] {
    LimitMemory();
    AnsiStr().Reserve(kTooMuch);
  };
  EXPECT_DEATH(run(), "Could not allocate string");
}

}  // namespace
}  // namespace OruGuiBase

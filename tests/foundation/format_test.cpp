#include "foundation/format.h"

#include <cwchar>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

__attribute__((format(printf, 1, 2))) AnsiStr Forward(const char* format, ...) {
  std::va_list list;
  va_start(list, format);
  AnsiStr text = FmtList(format, list);
  va_end(list);
  return text;
}

TEST(FormatTest, FormatsLikePrintf) {
  EXPECT_EQ(FmtArgs("request[%02u] = %s", 7U, "{}"), "request[07] = {}");
  EXPECT_EQ(Forward("%d %x", -1, 255U), "-1 ff");
}

TEST(FormatTest, NothingToFormatIsTheEmptyString) {
  EXPECT_EQ(FmtArgs("%s", "").GetImp(), nullptr);
}

TEST(FormatTest, LongTextsComeWhole) {
  const std::string text(200000, 'a');
  EXPECT_EQ(FmtArgs("%s!", text.c_str()).View(), text + "!");
}

TEST(FormatTest, PerCentSignsOfAnArgumentStayAsTheyAre) {
  EXPECT_EQ(FmtArgs("%s", "100%n%s"), "100%n%s");
}

// A text with a NUL byte inside goes into a formatted one up to that byte.
TEST(FormatTest, ATextArgumentEndsAtItsFirstNulByte) {
  const AnsiStr text(std::string_view("a\0b", 3));
  EXPECT_EQ(FmtArgs("<%s>", text.GetText()), "<a>");
}

TEST(FormatTest, AConversionThatFailsGivesTheEmptyString) {
  // A wide character outside the "C" locale's set cannot be converted.
  EXPECT_TRUE(FmtArgs("%lc", static_cast<std::wint_t>(0x20AC)).IsEmpty());
}

TEST(FormatTest, QuotesSurroundAndEscape) {
  EXPECT_EQ(SimpleQuote("plain"), "\"plain\"");
  EXPECT_EQ(SimpleQuote(""), "\"\"");
  EXPECT_EQ(SimpleQuote("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(SimpleQuote("a\nb\x7F"), "\"a\\x0ab\\x7f\"");
  EXPECT_EQ(SimpleQuote("\xC3\xA4"), "\"\xC3\xA4\"");
}

TEST(FormatTest, QuotingKeepsNulBytesVisible) {
  EXPECT_EQ(SimpleQuote(AnsiStr(std::string_view("a\0b", 3))), "\"a\\x00b\"");
}

}  // namespace
}  // namespace OruGuiBase

#include "foundation/numbers.h"

#include <gtest/gtest.h>
#include <limits>
#include <string_view>

#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

TEST(NumbersTest, WritesDecimalText) {
  const struct {
    std::uint64_t value;
    const char* text;
  } kRows[] = {{0, "0"}, {7, "7"}, {1234567890, "1234567890"}, {UINT64_MAX, "18446744073709551615"}};
  for (const auto& row : kRows) {
    char* buffer = nullptr;
    const AnsiStr text(kUHyperDigits, buffer);
    UHyper2Str(buffer, row.value);
    EXPECT_EQ(text, row.text);
  }
}

// Up to ten digits and nothing else.
TEST(NumbersTest, ParsesDigitsOfA32BitValue) {
  const struct {
    std::string_view text;
    int result;
    std::uint32_t value;
    const char* reason;
  } kRows[] = {
      {"0", 0, 0, "least value"},
      {"601", 0, 601, "an ordinary number"},
      {"4294967295", 0, 4294967295U, "largest value"},
      {"0000000042", 0, 42, "leading zeros within the digits"},
      {"4294967296", 1, 0, "one past the largest value"},
      {"9999999999", 1, 0, "ten digits out of range"},
      {"00000000042", 1, 0, "eleven digits"},
      {"", 1, 0, "nothing"},
      {"-1", 1, 0, "a sign"},
      {"-0", 1, 0, "a sign before 0"},
      {"+1", 1, 0, "a plus"},
      {" 1", 1, 0, "a leading blank"},
      {"1 ", 1, 0, "a trailing blank"},
      {"1.5", 1, 0, "a fraction"},
      {"0x10", 1, 0, "another base"},
      {"12a", 1, 0, "a letter"},
      {"1\0"sv, 1, 0, "a NUL byte"},
      {"\xC2\xB2", 1, 0, "a digit outside ASCII"},
  };
  for (const auto& row : kRows) {
    std::uint32_t value = 77;
    EXPECT_EQ(Str2ULong(AnsiStr(row.text), nullptr, value, /*sign=*/false, 10) != 0, row.result != 0)
        << row.reason;
    EXPECT_EQ(value, row.result == 0 ? row.value : 77) << row.reason;
  }
}

// Up to twenty digits, with or without a minus.
TEST(NumbersTest, ParsesDigitsOfA64BitValueWithASign) {
  const struct {
    std::string_view text;
    int result;
    std::int64_t value;
    const char* reason;
  } kRows[] = {
      {"0", 0, 0, "zero"},
      {"-0", 0, 0, "zero with a sign"},
      {"-1", 0, -1, "a negative number"},
      {"9223372036854775807", 0, std::numeric_limits<std::int64_t>::max(), "largest value"},
      {"-9223372036854775808", 0, std::numeric_limits<std::int64_t>::min(), "least value"},
      {"00000000000000000042", 0, 42, "twenty digits"},
      {"9223372036854775808", 1, 0, "one past the largest value"},
      {"-9223372036854775809", 1, 0, "one below the least value"},
      {"18446744073709551616", 1, 0, "past 64 bits"},
      {"99999999999999999999", 1, 0, "twenty digits out of range"},
      {"000000000000000000042", 1, 0, "twenty-one digits"},
      {"", 1, 0, "nothing"},
      {"-", 1, 0, "a sign alone"},
      {"--1", 1, 0, "two signs"},
      {"+1", 1, 0, "a plus"},
      {"1-", 1, 0, "a sign at the end"},
      {"1e3", 1, 0, "an exponent"},
  };
  for (const auto& row : kRows) {
    std::int64_t value = 77;
    EXPECT_EQ(Str2Hyper(AnsiStr(row.text), nullptr, value, /*sign=*/true, 20) != 0, row.result != 0)
        << row.reason;
    EXPECT_EQ(value, row.result == 0 ? row.value : 77) << row.reason;
  }
}

TEST(NumbersTest, ASignIsRefusedUnlessAllowed) {
  std::int64_t hyper = 0;
  EXPECT_NE(Str2Hyper("-1", nullptr, hyper, /*sign=*/false, 20), 0);
  std::uint32_t value = 5;
  EXPECT_NE(Str2ULong("-1", nullptr, value, /*sign=*/true, 10), 0);
  EXPECT_EQ(Str2ULong("-0", nullptr, value, /*sign=*/true, 10), 0);
  EXPECT_EQ(value, 0U);
}

TEST(NumbersTest, WithAnEndParsingStopsAtTheFirstOtherCharacter) {
  const AnsiStr text("123;rest");
  const char* end = nullptr;
  std::uint32_t value = 0;
  EXPECT_EQ(Str2ULong(text, &end, value, /*sign=*/false, 10), 0);
  EXPECT_EQ(value, 123U);
  EXPECT_STREQ(end, ";rest");
  std::int64_t hyper = 0;
  EXPECT_EQ(Str2Hyper("-5", &end, hyper, /*sign=*/true, 20), 0);
  EXPECT_EQ(hyper, -5);
}

TEST(NumbersTest, WithAnEndADigitIsStillNeeded) {
  const char* end = nullptr;
  std::uint32_t value = 7;
  EXPECT_NE(Str2ULong("abc", &end, value, /*sign=*/false, 10), 0);
  EXPECT_EQ(end, nullptr);
  EXPECT_EQ(value, 7U);
}

}  // namespace
}  // namespace OruGuiBase

#include "tools/report.h"

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace CryptCli {
namespace {

using TestSupport::Ansi;
using TestSupport::Str;

TEST(ToUTF8, LeavesGoodTextAlone) {
  EXPECT_EQ(Str(ToUTF8(Ansi("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x94\x91"))),
            "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x94\x91");
}

TEST(ToUTF8, ReplacesEachBadByte) {
  EXPECT_EQ(Str(ToUTF8(Ansi("a\xFF\xC3"))), "a\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(Str(ToUTF8(Ansi("\xED\xA0\x80z"))), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz");
}

TEST(ToLine, ShowsControlCharactersInsteadOfSendingThem) {
  EXPECT_EQ(Str(ToLine(Ansi("a\n\033[2J\x7F"))), "a\\x0a\\x1b[2J\\x7f");
  EXPECT_EQ(Str(ToLine(Ansi("a\xC2\x9B"
                            "2J"))),
            "a\\x9b2J");
  EXPECT_EQ(Str(ToLine(Ansi(std::string_view("a\0b", 3)))), "a\\x00b");
}

TEST(ToLine, ShowsControlsOfTheWritingDirection) {
  EXPECT_EQ(Str(ToLine(Ansi("a\xE2\x80\xAE"
                            "b\xE2\x80\x8F\xE2\x81\xA6\xE2\x81\xA9\xE2\x80\xAA"))),
            "a\\u202eb\\u200f\\u2066\\u2069\\u202a");
  EXPECT_EQ(Str(ToLine(Ansi("\xE2\x80\xA6\xE2\x82\xAC"))), "\xE2\x80\xA6\xE2\x82\xAC");
}

TEST(ToLine, LeavesLettersBeyondASCIIAlone) {
  EXPECT_EQ(Str(ToLine(Ansi("\xC2\xA0\xC3\xA4"))), "\xC2\xA0\xC3\xA4");
}

}  // namespace
}  // namespace CryptCli

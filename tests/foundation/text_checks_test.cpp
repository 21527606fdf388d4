#include "foundation/text_checks.h"

#include <gtest/gtest.h>
#include <string>

namespace OruGuiBase {
namespace {

TEST(TextChecks, FindsTheLengthOfTheFirstCharacter) {
  const struct {
    std::string bytes;
    std::size_t length;
  } rows[] = {{"ab", 1},           {std::string(1, '\0'), 1}, {"\xC3\xA4x", 2},
              {"\xE2\x82\xAC", 3}, {"\xF0\x9F\x98\x80", 4},   {"\xC3", 0},
              {"\x80", 0},         {"\xC0\xAF", 0},           {"\xED\xA0\x80", 0}};
  for (const auto& row : rows) EXPECT_EQ(GetCharacterLength(row.bytes), row.length) << row.bytes;
}

TEST(TextChecks, ReplacesEachByteThatIsNotUtf8) {
  EXPECT_EQ(MakeUtf8("\xE2\x82\xAC"), "\xE2\x82\xAC");
  EXPECT_EQ(MakeUtf8("a\xC3(\xE2\x82"), "a\xEF\xBF\xBD(\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(TextChecks, KnowsWhatCanBeAHeader) {
  EXPECT_TRUE(IsHeaderName("X-Tenant!"));
  for (const char* name : {"", "a b", "a:b", "\xC3\xA4", "a\n"}) EXPECT_FALSE(IsHeaderName(name)) << name;
  EXPECT_TRUE(IsHeaderValue("a\tb \xC3\xA4"));
  for (const char* value : {"a\r\nb", "\x7F"}) EXPECT_FALSE(IsHeaderValue(value)) << value;
  EXPECT_TRUE(HasControlCharacter("a\tb"));
  EXPECT_FALSE(HasControlCharacter("\xC3\xA4"));
}

}  // namespace
}  // namespace OruGuiBase

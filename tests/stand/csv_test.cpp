#include "stand/csv.h"

#include <gtest/gtest.h>

namespace CryptStand {
namespace {

TEST(CsvTest, QuotesFieldsWhereTheyNeedIt) {
  const struct {
    std::string_view field;
    const char* record;
    const char* reason;
  } rows[] = {
      {"", "\n", "nothing"},
      {"plain text", "plain text\n", "blanks need no quotes"},
      {"a;b'c", "a;b'c\n", "other marks need none either"},
      {"a,b", "\"a,b\"\n", "a comma"},
      {"a\"b", "\"a\"\"b\"\n", "a quote is doubled"},
      {"\"", "\"\"\"\"\n", "a quote alone"},
      {"a\nb", "\"a\nb\"\n", "a line feed"},
      {"a\rb", "\"a\rb\"\n", "a carriage return"},
      {"\xC3\xA4", "\xC3\xA4\n", "UTF-8 stays as it is"},
  };
  for (const auto& row : rows) EXPECT_EQ(CsvRecord({row.field}), row.record) << row.reason;
}

TEST(CsvTest, PutsCommasBetweenFieldsAndALineFeedBehindThem) {
  EXPECT_EQ(CsvRecord({"a", "", "b,c", "d"}), "a,,\"b,c\",d\n");
}

}  // namespace
}  // namespace CryptStand

#include "tools/config_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace CryptCli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string EntryText(const ConfigFile& file) {
  std::string all;
  for (const ConfigEntry& entry : file.entries) {
    all += std::to_string(entry.line) + "[" + entry.section + "]" + entry.key + "=" + entry.value + ";";
  }
  return all;
}

TEST(ParseConfigFile, ReadsEntriesWithSectionAndLine) {
  const ConfigFile file = ParseConfigFile("f",
                                          "# comment\n"
                                          "service = https://a/#x\n"
                                          "\n"
                                          "  [work]\t\r\n"
                                          "\troom=r 1 \r\n"
                                          "[ home ]\n"
                                          "room = x=y");
  EXPECT_THAT(file.problems, IsEmpty());
  EXPECT_EQ(EntryText(file), "2[]service=https://a/#x;5[work]room=r 1;7[home]room=x=y;");
  EXPECT_THAT(file.sections, ElementsAre("work", "home"));
}

TEST(ParseConfigFile, ReadsAnEmptyText) {
  const ConfigFile file = ParseConfigFile("f", "");
  EXPECT_TRUE(file.isThere);
  EXPECT_THAT(file.problems, IsEmpty());
  EXPECT_THAT(file.entries, IsEmpty());
}

TEST(ParseConfigFile, NamesTheLineOfEachProblem) {
  struct Row {
    std::string_view text;
    const char* problem;
  };
  const std::vector<Row> rows = {
      {"\nservice\n", "f:2: expected 'key = value', '[profile]' or a comment"},
      {"= value", "f:1: expected 'key = value', '[profile]' or a comment"},
      {"room =  ", "f:1: 'room' has no value"},
      {"[work", "f:1: expected the name of a profile in brackets, '[name]'"},
      {"[ ]", "f:1: expected the name of a profile in brackets, '[name]'"},
      {"[a]\n[b]\n[a]", "f:3: the profile 'a' appears a second time"},
      {"room = a\nroom = b", "f:2: 'room' is set in line 1 already"},
      {"room = a\x1b[0m", "f:1: the line contains a control character"},
      {std::string_view("room = a\0b", 10), "f:1: the line contains a control character"},
  };
  for (const Row& row : rows) {
    EXPECT_THAT(ParseConfigFile("f", row.text).problems, ElementsAre(row.problem)) << row.text;
  }
}

TEST(ParseConfigFile, ListsAllProblems) {
  EXPECT_EQ(ParseConfigFile("f", "x\ny\nroom = r\nz").problems.size(), 3U);
}

TEST(ParseConfigFile, AllowsOneKeyInSeveralSections) {
  EXPECT_THAT(ParseConfigFile("f", "room = a\n[w]\nroom = b").problems, IsEmpty());
}

TEST(ParseConfigFile, DoesNotQuoteALineThatMayBeASecret) {
  EXPECT_THAT(ParseConfigFile("f", "Authorization: secret").problems, ElementsAre(Not(HasSubstr("secret"))));
}

}  // namespace
}  // namespace CryptCli

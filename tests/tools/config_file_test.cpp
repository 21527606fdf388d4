#include "tools/config_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/files.h"

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

/// Files with an owner and a mode.
class ReadConfigFileTest : public ::testing::Test {
 protected:
  std::string Make(mode_t mode) const {
    scratch_.Make("config", "room = r\n");
    const std::string path = scratch_.Path("config").string();
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }

  TestSupport::ScratchDirectory scratch_;
};

TEST_F(ReadConfigFileTest, ReadsAFileThatOnlyItsOwnerCanWrite) {
  const ConfigFile file = ReadConfigFile(Make(0644));
  EXPECT_THAT(file.problems, IsEmpty());
  EXPECT_EQ(EntryText(file), "1[]room=r;");
}

TEST_F(ReadConfigFileTest, ReportsNoProblemWhenThereIsNoFile) {
  const ConfigFile file = ReadConfigFile(scratch_.Path("none/config").string());
  EXPECT_FALSE(file.isThere);
  EXPECT_THAT(file.problems, IsEmpty());
}

TEST_F(ReadConfigFileTest, RefusesAFileThatOthersCanWrite) {
  for (const mode_t mode : {0664U, 0646U}) {
    const ConfigFile file = ReadConfigFile(Make(mode));
    EXPECT_THAT(file.problems, ElementsAre(HasSubstr("others can write to it")));
    EXPECT_THAT(file.entries, IsEmpty());
  }
}

TEST_F(ReadConfigFileTest, RefusesAFileOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a file to another user";
  const std::string path = Make(0644);
  ASSERT_EQ(chown(path.c_str(), 12345, static_cast<gid_t>(-1)), 0);
  EXPECT_THAT(ReadConfigFile(path).problems, ElementsAre(HasSubstr("belongs to another user")));
}

TEST_F(ReadConfigFileTest, RefusesWhatIsNoFileWithoutWaiting) {
  const std::string fifo = scratch_.Path("fifo").string();
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_THAT(ReadConfigFile(fifo).problems, ElementsAre(HasSubstr("not a regular file")));
  EXPECT_THAT(ReadConfigFile(scratch_.Path("").string()).problems,
              ElementsAre(HasSubstr("not a regular file")));
}

TEST_F(ReadConfigFileTest, RefusesAFileOfMoreThanAMebibyte) {
  scratch_.Make("config", std::string(1024 * 1024 + 1, '#'));
  EXPECT_THAT(ReadConfigFile(scratch_.Path("config").string()).problems,
              ElementsAre(HasSubstr("larger than 1 MiB")));
}

}  // namespace
}  // namespace CryptCli

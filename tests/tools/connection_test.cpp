#include "tools/connection.h"

#include <gtest/gtest.h>
#include <vector>

#include "tests/support/text.h"

namespace CryptCli {
namespace {

using TestSupport::Ansi;
using TestSupport::JsonText;

TEST(AddHeader, SplitsAtTheFirstColon) {
  OruGuiBase::KVMap headers;
  EXPECT_TRUE(AddHeader("A: b: c", headers));
  EXPECT_TRUE(AddHeader("B:x", headers));
  EXPECT_TRUE(AddHeader("C:", headers));
  EXPECT_EQ(JsonText(headers), R"({"A":"b: c","B":"x","C":""})");
}

TEST(AddHeader, TheLaterOfTwoHeadersOfOneNameWins) {
  OruGuiBase::KVMap headers;
  EXPECT_TRUE(AddHeader("A: 1", headers));
  EXPECT_TRUE(AddHeader("A: 2", headers));
  EXPECT_EQ(JsonText(headers), R"({"A":"2"})");
}

struct Row {
  const char* reason;
  std::string_view line;
};

TEST(AddHeader, RefusesWhatIsNoHeader) {
  const std::vector<Row> rows = {
      {"nothing", ""},
      {"no colon", "Authorization"},
      {"no name", ": x"},
      {"a blank before the colon", "A : x"},
      {"a blank in the name", "A B: x"},
      {"a second line", "A: x\r\nB: y"},
      {"a NUL", std::string_view("A: x\0y", 6)},
  };
  for (const Row& row : rows) {
    OruGuiBase::KVMap headers;
    EXPECT_FALSE(AddHeader(Ansi(row.line), headers)) << row.reason;
    EXPECT_TRUE(headers.IsEmpty()) << row.reason;
  }
}

}  // namespace
}  // namespace CryptCli

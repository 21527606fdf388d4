#include "fuzz/support/input.h"

#include <gtest/gtest.h>

#include "tests/fuzz/input_fixture.h"
namespace Fuzz {
namespace {

TEST(InputTest, GivesBackWhatWasWritten) {
  const std::string bytes =
      InputWriter().Byte(7).Below(5, 9).Below(40000, 65536).Text("a\\b\n").Text("").Rest("rest").Get();
  Input input = Read(bytes);
  EXPECT_EQ(input.Byte(), 7);
  EXPECT_EQ(input.Below(9), 5U);
  EXPECT_EQ(input.Below(65536), 40000U);
  EXPECT_EQ(input.Text(), "a\\b\n");
  EXPECT_EQ(input.Text(), "");
  EXPECT_EQ(input.Rest(), "rest");
  EXPECT_TRUE(input.IsEmpty());
}

TEST(InputTest, ReturnsZerosAndEmptyStringsOnceUsedUp) {
  Input input(nullptr, 0);
  EXPECT_EQ(input.Byte(), 0);
  EXPECT_EQ(input.Below(65536), 0U);
  EXPECT_FALSE(input.Flag());
  EXPECT_EQ(input.Text(), "");
  EXPECT_EQ(input.Rest(), "");
}

TEST(InputTest, ChoicesStayInTheirBound) {
  const std::string bytes = "\xFF\xFF\xFF";
  Input input = Read(bytes);
  EXPECT_EQ(input.Below(10), 255U % 10U);
  EXPECT_EQ(input.Below(1), 0U);
  EXPECT_EQ(input.Below(1000), 65535U % 1000U);
}

TEST(InputTest, AStringEndsAtABackslashOrWithTheInput) {
  const std::string ended = "one\\xtwo";
  Input input = Read(ended);
  EXPECT_EQ(input.Text(), "one");
  EXPECT_EQ(input.Text(), "two");
  const std::string cut = "one\\";
  Input short_input = Read(cut);
  EXPECT_EQ(short_input.Text(), "one");
  EXPECT_TRUE(short_input.IsEmpty());
}

}  // namespace
}  // namespace Fuzz

#include "fuzz/support/mutation.h"

#include <gtest/gtest.h>

#include "fuzz/support/text.h"
#include "tests/fuzz/input_fixture.h"

namespace Fuzz {
namespace {

TEST(MutationTest, SetsTheChosenByte) {
  const std::string bytes = InputWriter().Below(0, 4).Below(0, 7).Below(2, 65536).Byte('X').Get();
  Input input = Read(bytes);
  std::string text = "abcd";
  Mutate(text, input);
  EXPECT_EQ(text, "abXd");
}

TEST(MutationTest, AcceptsAnEmptyStringForEveryChange) {
  for (std::uint32_t type = 0; type < 7; ++type) {
    const std::string bytes = InputWriter().Below(0, 4).Below(type, 7).Byte(1).Byte(1).Text("new").Get();
    Input input = Read(bytes);
    std::string text;
    Mutate(text, input);
    EXPECT_EQ(text, type == 4 ? "new" : "") << type;
  }
}

TEST(MutationTest, ReplacesAMemberDeepInside) {
  // Into the map, to its second member; into the list, to its first element; there another value: true.
  const std::string bytes =
      InputWriter().Below(1, 4).Below(1, 2).Below(1, 4).Below(0, 2).Below(0, 4).Below(2, 9).Byte(1).Get();
  Input input = Read(bytes);
  EXPECT_EQ(JsonText(MutateJson(ParseJson(R"({"a":1,"b":["x","y"]})"), input)), R"({"a":1,"b":[true,"y"]})");
}

TEST(MutationTest, LeavesTheGivenValueAlone) {
  const OruGuiBase::Val value = ParseJson(R"({"a":[1]})");
  const std::string bytes = InputWriter().Below(1, 4).Below(1, 4).Below(0, 4).Below(2, 9).Byte(1).Get();
  Input input = Read(bytes);
  EXPECT_NE(JsonText(MutateJson(value, input)), JsonText(value));
  EXPECT_EQ(JsonText(value), R"({"a":[1]})");
}

}  // namespace
}  // namespace Fuzz

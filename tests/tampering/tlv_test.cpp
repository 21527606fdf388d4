#include "tests/tampering/tlv.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;

namespace TestSupport {
namespace {

std::vector<std::size_t> OffsetsOf(const std::string& bytes) {
  std::vector<std::size_t> offsets;
  for (const LengthField& field : FindLengthFields(bytes)) offsets.push_back(field.offset);
  return offsets;
}

TEST(Tlv, FindsTheFieldsOfNestedElements) {
  EXPECT_THAT(OffsetsOf(std::string("\x30\x05\x02\x01\x00\x05\x00", 7)), ElementsAre(1U, 3U, 6U));
}

TEST(Tlv, FindsTheFieldsWithinIndefiniteLengths) {
  EXPECT_THAT(OffsetsOf(std::string("\x30\x80\x24\x80\x04\x01x\x00\x00\x00\x00", 11)),
              ElementsAre(1U, 3U, 5U, 8U, 10U));
}

TEST(Tlv, FindsAFieldOfSeveralOctets) {
  const std::vector<LengthField> fields = FindLengthFields("\x04\x82\x01\x01" + std::string(257, 'x'));
  ASSERT_EQ(fields.size(), 1U);
  EXPECT_EQ(fields[0].offset, 1U);
  EXPECT_EQ(fields[0].size, 3U);
}

TEST(Tlv, WritesLengths) {
  EXPECT_EQ(LengthOctets(0), std::string(1, '\0'));
  EXPECT_EQ(LengthOctets(0x7F), "\x7F");
  EXPECT_EQ(LengthOctets(0x80), "\x81\x80");
  EXPECT_EQ(LengthOctets(0x80000000), std::string("\x84\x80\0\0\0", 5));
  EXPECT_EQ(LengthOctets(~std::uint64_t{0}), "\x88\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF");
  EXPECT_EQ(WithLength("\x04\x01x", {1, 1}, "\x81\x01"), "\x04\x81\x01x");
}

}  // namespace
}  // namespace TestSupport

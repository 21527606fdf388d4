#include "foundation/datetime.h"

#include <cstring>
#include <gtest/gtest.h>

#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

struct Fields {
  std::uint32_t year = 2024;
  std::uint32_t month = 6;
  std::uint32_t day = 15;
  std::uint32_t hour = 12;
  std::uint32_t minute = 30;
  std::uint32_t second = 45;
  std::uint16_t milliseconds = 0;
  std::int16_t zone = 0;
};

const unsigned char* BytesOf(const PackedDateTime& date) {
  return reinterpret_cast<const unsigned char*>(&date);
}

bool Pack(PackedDateTime& date, const Fields& f) {
  return date.Pack(f.year, f.month, f.day, f.hour, f.minute, f.second, f.milliseconds, f.zone);
}

// A refused date changes nothing.
TEST(PackedDateTimeTest, PacksExactlyWhatIsInRange) {
  const struct {
    Fields fields;
    bool packs;
    const char* reason;
  } kRows[] = {
      {{}, true, "an ordinary date"},
      {{.year = 1}, true, "least year"},
      {{.year = 0}, false, "no year 0"},
      {{.year = 4095}, true, "last year"},
      {{.year = 4096}, false, "year past 12 bits"},
      {{.month = 1}, true, "least month"},
      {{.month = 0}, false, "no month 0"},
      {{.month = 12}, true, "last month"},
      {{.month = 13}, false, "no month 13"},
      {{.day = 1}, true, "least day"},
      {{.day = 0}, false, "no day 0"},
      {{.day = 31}, true, "last day, whatever the month"},
      {{.day = 32}, false, "no day 32"},
      {{.hour = 0}, true, "least hour"},
      {{.hour = 23}, true, "last hour"},
      {{.hour = 24}, false, "no hour 24"},
      {{.minute = 59}, true, "last minute"},
      {{.minute = 60}, false, "no minute 60"},
      {{.second = 59}, true, "last second"},
      {{.second = 60}, false, "no leap second"},
      {{.milliseconds = 999}, true, "last millisecond"},
      {{.milliseconds = 1000}, false, "no millisecond 1000"},
      {{.zone = 720}, true, "easternmost zone"},
      {{.zone = -720}, true, "westernmost zone"},
      {{.zone = 721}, false, "past the easternmost zone"},
      {{.zone = 735}, false, "past the easternmost zone by a quarter hour"},
      {{.zone = -735}, false, "past the westernmost zone by a quarter hour"},
      {{.zone = 7}, false, "no whole quarter hour"},
      {{.zone = -1}, false, "no whole quarter hour in the west"},
      {{.zone = -15}, true, "a quarter hour in the west"},
      {{.zone = 32767}, false, "largest zone"},
      {{.zone = -32768}, false, "least zone"},
      {{.year = 0xFFFFFFFF}, false, "largest year"},
  };
  for (const auto& row : kRows) {
    PackedDateTime date;
    EXPECT_EQ(Pack(date, row.fields), row.packs) << row.reason;
    if (!row.packs) {
      EXPECT_EQ(date.ToBits(), 0U) << row.reason;
      continue;
    }
    const Fields& f = row.fields;
    EXPECT_EQ(date.Unpack(),
              (datetime{static_cast<std::int32_t>(f.year), static_cast<std::int32_t>(f.month),
                        static_cast<std::int32_t>(f.day), static_cast<std::int32_t>(f.hour),
                        static_cast<std::int32_t>(f.minute), static_cast<std::int32_t>(f.second)}))
        << row.reason;
    EXPECT_EQ(date.GetMilliseconds(), f.milliseconds) << row.reason;
    EXPECT_EQ(date.GetZoneMinutes(), f.zone) << row.reason;
  }
}

TEST(PackedDateTimeTest, YearsEndWith4095) {
  PackedDateTime date;
  EXPECT_TRUE(Pack(date, {.year = 4095}));
  EXPECT_FALSE(Pack(date, {.year = 4096}));
  EXPECT_EQ(date.Unpack().year, 4095);
}

TEST(PackedDateTimeTest, MillisecondsEndWith999) {
  PackedDateTime date;
  EXPECT_TRUE(Pack(date, {.milliseconds = 999}));
  EXPECT_FALSE(Pack(date, {.milliseconds = 1000}));
  EXPECT_EQ(date.GetMilliseconds(), 999U);
}

TEST(PackedDateTimeTest, ZonesAreWholeQuarterHoursUpToTwelveHoursEitherWay) {
  for (int zone = -32768; zone <= 32767; ++zone) {
    PackedDateTime date;
    const bool fits = zone >= -720 && zone <= 720 && zone % 15 == 0;
    ASSERT_EQ(Pack(date, {.zone = static_cast<std::int16_t>(zone)}), fits) << zone;
    ASSERT_EQ(date.GetZoneMinutes(), fits ? zone : 0) << zone;
  }
}

TEST(PackedDateTimeTest, ARefusedDateLeavesTheOneThatWasPackedBefore) {
  PackedDateTime date;
  ASSERT_TRUE(Pack(date, {.milliseconds = 7, .zone = -15}));
  const std::uint64_t before = date.ToBits();
  EXPECT_FALSE(Pack(date, {.year = 2000, .milliseconds = 1000}));
  EXPECT_FALSE(Pack(date, {.hour = 1, .zone = 7}));
  EXPECT_EQ(date.ToBits(), before);
}

TEST(PackedDateTimeTest, FieldsLieAtTheirBits) {
  PackedDateTime date;
  ASSERT_TRUE(date.Pack(0x555, 0xA, 0x15, 0x12, 0x2A, 0x15, 0x2AA, -45));
  const std::uint32_t word = 0x2AAU | 0x15U << 10 | 0x2AU << 16 | 0x12U << 22 | 0x15U << 27;
  const std::uint16_t half = 0xA | 0x555 << 4;
  unsigned char expected[7];
  std::memcpy(expected, &word, 4);
  std::memcpy(expected + 4, &half, 2);
  expected[6] = 0x40 | 3;
  EXPECT_EQ(std::memcmp(BytesOf(date), expected, 7), 0);
}

TEST(PackedDateTimeTest, PackingKeepsTheSpareBit) {
  PackedDateTime date = PackedDateTime::FromBits(std::uint64_t{0xFF} << 48);
  ASSERT_TRUE(Pack(date, {.zone = 30}));
  EXPECT_EQ(BytesOf(date)[6], 0x82);
  ASSERT_TRUE(Pack(date, {.zone = -30}));
  EXPECT_EQ(BytesOf(date)[6], 0xC2);
}

TEST(PackedDateTimeTest, PackingClearsAnOldSign) {
  PackedDateTime date;
  ASSERT_TRUE(Pack(date, {.zone = -60}));
  ASSERT_TRUE(Pack(date, {.zone = 60}));
  EXPECT_EQ(date.GetZoneMinutes(), 60);
}

TEST(PackedDateTimeTest, BitsRoundTrip) {
  const std::uint64_t bits = 0x00A1B2C3D4E5F607U;
  const PackedDateTime date = PackedDateTime::FromBits(bits);
  EXPECT_EQ(date.ToBits(), bits);
  const std::uint32_t word = 0xD4E5F607U;
  EXPECT_EQ(std::memcmp(BytesOf(date), &word, 4), 0);
  EXPECT_EQ(BytesOf(date)[6], 0xA1);
}

TEST(PackedDateTimeTest, BitsAboveTheSevenBytesAreDropped) {
  EXPECT_EQ(PackedDateTime::FromBits(0xFF00000000000001U).ToBits(), 1U);
}

}  // namespace
}  // namespace OruGuiBase

#include "foundation/dates.h"

#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "tests/foundation/failing_clock.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

constexpr datetime kEpoch{1994, 11, 6, 8, 49, 37};

// Without weekday or seconds, in any zone and case; the result is UTC.
TEST(RFC1123Test, ReadsTheForms) {
  const struct {
    const char* text;
    datetime value;
    const char* reason;
  } kRows[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", kEpoch, "the form of HTTP"},
      {"06 Nov 1994 08:49:37 GMT", kEpoch, "no weekday"},
      {"Mon, 06 Nov 1994 08:49:37 GMT", kEpoch, "a weekday that is not that date's"},
      {"sun, 06 nov 1994 08:49:37 gmt", kEpoch, "lower case"},
      {"Sun,06 Nov 1994 08:49:37 GMT", kEpoch, "no blank after the comma"},
      {"Sun,  06  Nov  1994  08:49:37  GMT", kEpoch, "several blanks"},
      {"Sun, 6 Nov 1994 08:49:37 GMT", kEpoch, "a day of one digit"},
      {"Sun, 06 Nov 1994 08:49 GMT", {1994, 11, 6, 8, 49, 0}, "no seconds"},
      {"Sun, 06 Nov 1994 08:49:37 UT", kEpoch, "zone UT"},
      {"Sun, 06 Nov 1994 08:49:37 UTC", kEpoch, "zone UTC"},
      {"Sun, 06 Nov 1994 08:49:37 Z", kEpoch, "zone Z"},
      {"Sun, 06 Nov 1994 08:49:37 +0000", kEpoch, "no offset"},
      {"Sun, 06 Nov 1994 08:49:37 -0000", kEpoch, "no offset, of unknown zone"},
      {"Sun, 06 Nov 1994 09:49:37 +0100", kEpoch, "east"},
      {"Sun, 06 Nov 1994 03:19:37 -0530", kEpoch, "west, with half an hour"},
      {"Thu, 29 Feb 2024 23:59:59 GMT", {2024, 2, 29, 23, 59, 59}, "a leap day"},
      {"Tue, 29 Feb 2000 00:00:00 GMT", {2000, 2, 29, 0, 0, 0}, "a leap day of a 400th year"},
      {"Fri, 01 Mar 2024 00:30:00 +0100", {2024, 2, 29, 23, 30, 0}, "back into a leap day"},
      {"Sun, 31 Dec 2023 23:30:00 -0100", {2024, 1, 1, 0, 30, 0}, "forward into the next year"},
      {"Sat, 31 Dec 2016 23:59:60 GMT", {2017, 1, 1, 0, 0, 0}, "a leap second"},
      {"Sun, 06 Nov 1994 08:49:60 GMT", {1994, 11, 6, 8, 50, 0}, "a second 60 of any minute"},
      {"Mon, 01 Jan 0001 00:00:00 GMT", {1, 1, 1, 0, 0, 0}, "the first moment"},
      {"Fri, 31 Dec 9999 23:59:59 GMT", {9999, 12, 31, 23, 59, 59}, "the last moment"},
      {"Sun, 06 Nov 1994 08:49:37 +2359", {1994, 11, 5, 8, 50, 37}, "the easternmost offset"},
  };
  for (const auto& row : kRows) {
    datetime value;
    EXPECT_EQ(RFC1123Str2UniversalDateTime(row.text, value), 0) << row.reason;
    EXPECT_EQ(value, row.value) << row.reason;
  }
}

TEST(RFC1123Test, ReadsEveryMonth) {
  const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int i = 0; i < 12; ++i) {
    datetime value;
    EXPECT_EQ(
        RFC1123Str2UniversalDateTime(AnsiStr(std::string("28 ") + months[i] + " 2023 00:00:00 GMT"), value),
        0);
    EXPECT_EQ(value, (datetime{2023, i + 1, 28, 0, 0, 0}));
  }
}

TEST(RFC1123Test, ReadsEveryWeekday) {
  for (const char* const day : {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"}) {
    datetime value;
    EXPECT_EQ(RFC1123Str2UniversalDateTime(AnsiStr(std::string(day) + ", 06 Nov 1994 08:49:37 GMT"), value),
              0);
  }
}

// The caller's value stays as it is.
TEST(RFC1123Test, RefusesEverythingElse) {
  const struct {
    std::string_view text;
    const char* reason;
  } kRows[] = {
      {"", "nothing"},
      {" ", "a blank"},
      {"Sunday, 06 Nov 1994 08:49:37 GMT", "a weekday in full"},
      {"Xyz, 06 Nov 1994 08:49:37 GMT", "no weekday's name"},
      {"Su, 06 Nov 1994 08:49:37 GMT", "half a weekday's name"},
      {"Sun 06 Nov 1994 08:49:37 GMT", "no comma"},
      {", 06 Nov 1994 08:49:37 GMT", "a comma alone"},
      {"Sun Nov  6 08:49:37 1994", "the form of asctime"},
      {"Sunday, 06-Nov-94 08:49:37 GMT", "the form of RFC 850"},
      {"Sun, 06-Nov-1994 08:49:37 GMT", "dashes"},
      {"Sun, 006 Nov 1994 08:49:37 GMT", "a day of three digits"},
      {"Sun, 0 Nov 1994 08:49:37 GMT", "no day 0"},
      {"Sun, 31 Nov 1994 08:49:37 GMT", "no such day in the month"},
      {"Wed, 29 Feb 2023 00:00:00 GMT", "no leap day in that year"},
      {"Thu, 29 Feb 1900 00:00:00 GMT", "no leap day in a 100th year"},
      {"Sun, 32 Dec 1994 08:49:37 GMT", "no such day in any month"},
      {"Sun, 06 Foo 1994 08:49:37 GMT", "no month's name"},
      {"Sun, 06 November 1994 08:49:37 GMT", "a month in full"},
      {"Sun, 06 11 1994 08:49:37 GMT", "a month in digits"},
      {"Sun, 06Nov 1994 08:49:37 GMT", "no blank after the day"},
      {"Sun, 06 Nov1994 08:49:37 GMT", "no blank after the month"},
      {"Sun, 06 Nov 94 08:49:37 GMT", "a year of two digits"},
      {"Sun, 06 Nov 194 08:49:37 GMT", "a year of three digits"},
      {"Sun, 06 Nov 19940 08:49:37 GMT", "a year of five digits"},
      {"Sun, 06 Nov 0000 08:49:37 GMT", "no year 0"},
      {"Sun, 06 Nov -994 08:49:37 GMT", "a negative year"},
      {"Sun, 06 Nov 1994 8:49:37 GMT", "an hour of one digit"},
      {"Sun, 06 Nov 1994 24:00:00 GMT", "no hour 24"},
      {"Sun, 06 Nov 1994 08:60:00 GMT", "no minute 60"},
      {"Sun, 06 Nov 1994 08:49:61 GMT", "no second 61"},
      {"Sun, 06 Nov 1994 08:49: GMT", "a colon without seconds"},
      {"Sun, 06 Nov 1994 08:49:37.5 GMT", "a fraction"},
      {"Sun, 06 Nov 1994 0849 GMT", "no colon"},
      {"Sun, 06 Nov 1994 08:49:37", "no zone"},
      {"Sun, 06 Nov 1994 08:49:37 ", "a blank for a zone"},
      {"Sun, 06 Nov 1994 08:49:37GMT", "no blank before the zone"},
      {"Sun, 06 Nov 1994 08:49:37 EST", "a local zone's name"},
      {"Sun, 06 Nov 1994 08:49:37 A", "a military zone"},
      {"Sun, 06 Nov 1994 08:49:37 +100", "an offset of three digits"},
      {"Sun, 06 Nov 1994 08:49:37 +01:00", "an offset with a colon"},
      {"Sun, 06 Nov 1994 08:49:37 +2400", "an offset of a day"},
      {"Sun, 06 Nov 1994 08:49:37 +0060", "an offset of sixty minutes"},
      {"Sun, 06 Nov 1994 08:49:37 +-100", "two signs"},
      {"Sun, 06 Nov 1994 08:49:37 GMT ", "a blank at the end"},
      {"Sun, 06 Nov 1994 08:49:37 GMT\r\n", "a line end at the end"},
      {"Sun, 06 Nov 1994 08:49:37 GMT (x)", "a comment at the end"},
      {"Sun, 06 Nov 1994 08:49:37 GMT\0"sv, "a NUL byte at the end"},
      {" Sun, 06 Nov 1994 08:49:37 GMT", "a blank before"},
      {"Sun,\t06 Nov 1994 08:49:37 GMT", "a tabulator"},
      {"1994-11-06T08:49:37Z", "the form of ISO 8601"},
      {"784111777", "seconds"},
      {"Mon, 01 Jan 0001 00:00:00 +0001", "before the first moment"},
      {"Fri, 31 Dec 9999 23:59:00 -0001", "after the last moment"},
      {"Fri, 31 Dec 9999 23:59:60 GMT", "a leap second after the last moment"},
  };
  for (const auto& row : kRows) {
    datetime value{1, 2, 3, 4, 5, 6};
    EXPECT_NE(RFC1123Str2UniversalDateTime(AnsiStr(row.text), value), 0) << row.reason;
    EXPECT_EQ(value, (datetime{1, 2, 3, 4, 5, 6})) << row.reason;
  }
}

TEST(RFC1123Test, ADateCutAtAnyLengthIsRefused) {
  const std::string_view text = "Sun, 06 Nov 1994 09:49:37 +0100";
  for (std::size_t length = 0; length < text.size(); ++length) {
    datetime value;
    EXPECT_NE(RFC1123Str2UniversalDateTime(AnsiStr(text.substr(0, length)), value), 0) << length;
  }
}

// A changed byte gives another form of the same date, another date of the calendar, or a refusal.
TEST(RFC1123Test, ADateWithAnyByteChangedIsADateOrRefused) {
  const std::string text = "Sun, 06 Nov 1994 08:49:37 GMT";
  int dates = 0;
  for (std::size_t place = 0; place < text.size(); ++place) {
    for (int change = 1; change < 256; ++change) {
      std::string changed = text;
      changed[place] = static_cast<char>(changed[place] ^ change);
      datetime value;
      if (RFC1123Str2UniversalDateTime(AnsiStr(changed), value) != 0) {
        EXPECT_EQ(value, datetime()) << changed;
        continue;
      }
      ++dates;
      EXPECT_TRUE(IsValidDateTime(value)) << changed;
    }
  }
  EXPECT_GT(dates, 50);
}

TEST(ISODateTest, WritesTheFieldsInOrder) {
  EXPECT_EQ(DateTime2ISOStr({2024, 2, 29, 23, 59, 58}, nullptr, nullptr), "2024-02-29T23:59:58");
  EXPECT_EQ(DateTime2ISOStr({1, 2, 3, 4, 5, 6}, nullptr, nullptr), "0001-02-03T04:05:06");
  EXPECT_EQ(DateTime2ISOStr({}, nullptr, nullptr), "0000-00-00T00:00:00");
}

TEST(ISODateTest, AddsFractionAndZoneWhenGiven) {
  const datetime value{2024, 2, 29, 23, 59, 58};
  const std::uint16_t fraction = 7;
  const std::int16_t east = 90;
  const std::int16_t west = -720;
  const std::int16_t none = 0;
  EXPECT_EQ(DateTime2ISOStr(value, &fraction, nullptr), "2024-02-29T23:59:58.007");
  EXPECT_EQ(DateTime2ISOStr(value, nullptr, &east), "2024-02-29T23:59:58+01:30");
  EXPECT_EQ(DateTime2ISOStr(value, &fraction, &west), "2024-02-29T23:59:58.007-12:00");
  EXPECT_EQ(DateTime2ISOStr(value, nullptr, &none), "2024-02-29T23:59:58+00:00");
}

// An unset date is not valid.
TEST(ValidDateTest, AcceptsOnlyDatesOfTheCalendar) {
  const struct {
    datetime value;
    bool valid;
    const char* reason;
  } kRows[] = {
      {{}, false, "an unset value"},
      {{2024, 2, 29, 0, 0, 0}, true, "a leap day"},
      {{2023, 2, 29, 0, 0, 0}, false, "no leap day"},
      {{1900, 2, 29, 0, 0, 0}, false, "no leap day in a 100th year"},
      {{2000, 2, 29, 0, 0, 0}, true, "a leap day of a 400th year"},
      {{2024, 4, 30, 0, 0, 0}, true, "last of April"},
      {{2024, 4, 31, 0, 0, 0}, false, "no 31 April"},
      {{1, 1, 1, 0, 0, 0}, true, "the first day"},
      {{9999, 12, 31, 23, 59, 59}, true, "the last moment"},
      {{10000, 1, 1, 0, 0, 0}, false, "a year of five digits"},
      {{-1, 1, 1, 0, 0, 0}, false, "a negative year"},
      {{2024, 0, 1, 0, 0, 0}, false, "month 0"},
      {{2024, 13, 1, 0, 0, 0}, false, "month 13"},
      {{2024, 1, 0, 0, 0, 0}, false, "day 0"},
      {{2024, 1, 1, 24, 0, 0}, false, "hour 24"},
      {{2024, 1, 1, -1, 0, 0}, false, "a negative hour"},
      {{2024, 1, 1, 0, 60, 0}, false, "minute 60"},
      {{2024, 1, 1, 0, 0, 60}, false, "second 60"},
      {{2024, 1, 1, 0, 0, -1}, false, "a negative second"},
  };
  for (const auto& row : kRows) EXPECT_EQ(IsValidDateTime(row.value), row.valid) << row.reason;
}

TEST(AddSecondsTest, CarriesThroughEveryField) {
  const struct {
    datetime from;
    std::int64_t seconds;
    datetime to;
  } kRows[] = {
      {{2024, 1, 1, 0, 0, 0}, 0, {2024, 1, 1, 0, 0, 0}},
      {{2024, 1, 1, 0, 0, 0}, 59, {2024, 1, 1, 0, 0, 59}},
      {{2024, 1, 1, 0, 0, 59}, 1, {2024, 1, 1, 0, 1, 0}},
      {{2024, 2, 28, 23, 59, 59}, 1, {2024, 2, 29, 0, 0, 0}},
      {{2023, 2, 28, 23, 59, 59}, 1, {2023, 3, 1, 0, 0, 0}},
      {{2023, 12, 31, 23, 59, 59}, 1, {2024, 1, 1, 0, 0, 0}},
      {{2024, 1, 1, 0, 0, 0}, -1, {2023, 12, 31, 23, 59, 59}},
      {{2000, 3, 1, 0, 0, 0}, -86400, {2000, 2, 29, 0, 0, 0}},
      {{1970, 1, 1, 0, 0, 0}, 1700000000, {2023, 11, 14, 22, 13, 20}},
      {{1, 1, 1, 0, 0, 0}, 315537897599, {9999, 12, 31, 23, 59, 59}},
      {{9999, 12, 31, 23, 59, 59}, -315537897599, {1, 1, 1, 0, 0, 0}},
  };
  for (const auto& row : kRows) {
    datetime value = row.from;
    EXPECT_EQ(&AddSeconds(value, row.seconds), &value);
    EXPECT_EQ(value, row.to);
  }
}

TEST(AddSecondsTest, AgreesWithTheSystemsCalendar) {
  for (std::int64_t seconds = -12000000000; seconds < 14000000000; seconds += 9973L * 3600) {
    datetime value{1970, 1, 1, 0, 0, 0};
    AddSeconds(value, seconds);
    const std::time_t time = seconds;
    std::tm fields{};
    ASSERT_NE(gmtime_r(&time, &fields), nullptr);
    ASSERT_EQ(value, (datetime{fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                               fields.tm_min, fields.tm_sec}));
  }
}

TEST(UnixTimeTest, AgreesWithTheSystems) {
  for (std::time_t time = -12000000000; time < 14000000000; time += 9973L * 3600) {
    std::tm fields{};
    ASSERT_NE(gmtime_r(&time, &fields), nullptr);
    ASSERT_EQ(ToUnixTime({fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                          fields.tm_min, fields.tm_sec}),
              time);
  }
}

// So that no certificate is valid at that time.
TEST(UnixTimeTest, OfAnInvalidDateIsBeforeTheYearOne) {
  const std::int64_t first = ToUnixTime({1, 1, 1, 0, 0, 0});
  EXPECT_EQ(first, -62135596800);
  for (const datetime& none : {datetime(), datetime{2024, 2, 30, 0, 0, 0}, datetime{2024, 13, 1, 0, 0, 0},
                               datetime{2024, -1, 1, 0, 0, 0}, datetime{10000, 1, 1, 0, 0, 0}}) {
    EXPECT_LT(ToUnixTime(none), first);
  }
}

TEST(AddSecondsTest, LeavesAnInvalidDateAlone) {
  datetime value;
  EXPECT_EQ(AddSeconds(value, 100), datetime());
  value = {2024, 2, 30, 0, 0, 0};
  EXPECT_EQ(AddSeconds(value, 100), (datetime{2024, 2, 30, 0, 0, 0}));
}

TEST(AddSecondsTest, ASumOutsideTheCalendarIsUnset) {
  for (const std::int64_t seconds :
       {INT64_MAX, INT64_MIN, std::int64_t{400000000000}, std::int64_t{-400000000000}}) {
    datetime value{2024, 1, 1, 0, 0, 0};
    EXPECT_FALSE(IsValidDateTime(AddSeconds(value, seconds)));
    EXPECT_EQ(value, datetime());
  }
}

TEST(CurrentDateTest, HasAllFieldsZeroWhenTheSystemHasNoTime) {
  long fields[] = {1, 2, 3, 4, 5, 6, 7};
  bool known = true;
  {
    const FailingClock clock;
    known = GetCurrentDateTime(fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6]);
  }
  EXPECT_FALSE(known);
  for (const long field : fields) EXPECT_EQ(field, 0);
}

TEST(CurrentDateTest, GivesThePresentUniversalTime) {
  const std::time_t before = std::time(nullptr);
  long year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = -1;
  ASSERT_TRUE(GetCurrentDateTime(year, month, day, hour, minute, second, millisecond));
  const std::time_t after = std::time(nullptr);
  std::tm fields{};
  fields.tm_year = static_cast<int>(year - 1900);
  fields.tm_mon = static_cast<int>(month - 1);
  fields.tm_mday = static_cast<int>(day);
  fields.tm_hour = static_cast<int>(hour);
  fields.tm_min = static_cast<int>(minute);
  fields.tm_sec = static_cast<int>(second);
  const std::time_t now = timegm(&fields);
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
  EXPECT_GE(millisecond, 0);
  EXPECT_LE(millisecond, 999);
}

}  // namespace
}  // namespace OruGuiBase

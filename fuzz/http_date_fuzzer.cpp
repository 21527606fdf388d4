// Parses the input as an HTTP date. The result must be a valid date, and its usual form must parse to the
// same.
#include <array>
#include <cstdint>
#include <cstdio>

#include "foundation/dates.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

namespace {

using OruGuiBase::datetime;

constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

OruGuiBase::AnsiStr UsualForm(const datetime& time) {
  char text[80];
  const int length = std::snprintf(text, sizeof text, "Mon, %02d %s %04d %02d:%02d:%02d GMT", time.day,
                                   kMonths[static_cast<std::size_t>(time.month - 1)], time.year, time.hour,
                                   time.minute, time.second);
  Fuzz::Require(length > 0 && length < static_cast<int>(sizeof text), "a date has a usual form");
  return OruGuiBase::AnsiStr(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const datetime untouched{1, 2, 3, 4, 5, 6};
  datetime time = untouched;
  if (OruGuiBase::RFC1123Str2UniversalDateTime(Fuzz::Ansi(Fuzz::View(data, size)), time) != 0) {
    Fuzz::Require(time == untouched, "a failure leaves the value alone");
    return 0;
  }
  Fuzz::Require(OruGuiBase::IsValidDateTime(time), "a date that is read is one of the calendar");
  datetime again;
  Fuzz::Require(OruGuiBase::RFC1123Str2UniversalDateTime(UsualForm(time), again) == 0 && again == time,
                "the usual form of a date reads as the same date");
  Fuzz::Require(!OruGuiBase::DateTime2ISOStr(time, nullptr, nullptr).IsEmpty(), "a date has an ISO form");
  datetime moved = time;
  OruGuiBase::AddSeconds(moved, 1);
  if (OruGuiBase::IsValidDateTime(moved))
    Fuzz::Require(OruGuiBase::AddSeconds(moved, -1) == time, "a second forth and back is the same time");
  return 0;
}

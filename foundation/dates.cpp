// Dates as strings and as seconds: the time of a key server's response (RFC 1123), the names of audit logs
// (ISO 8601), and the Unix time in which certificates are checked.

#include "foundation/dates.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <string_view>

#include "foundation/format.h"

namespace OruGuiBase {

namespace {

using std::chrono::day, std::chrono::month, std::chrono::year, std::chrono::seconds;
using std::chrono::sys_days, std::chrono::sys_seconds, std::chrono::year_month_day;

constexpr int kFailed = 1;  // any number but 0, which means success
// The years that the strings can express with four digits.
constexpr std::int32_t kFirstYear = 1;
constexpr std::int32_t kLastYear = 9999;

constexpr const char* kWeekdays[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
constexpr const char* kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                   "jul", "aug", "sep", "oct", "nov", "dec"};
// Zones that mean UTC: RFC 1123 writes GMT, some servers one of the others.
constexpr const char* kUniversalZones[] = {"gmt", "utc", "ut", "z"};

// Not ok() if the fields are no date of the calendar.
year_month_day DateOf(const datetime& value) {
  return year(value.year) / month(static_cast<unsigned>(value.month)) / day(static_cast<unsigned>(value.day));
}

bool IsDateOfCalendar(const datetime& value) {
  return value.year >= kFirstYear && value.year <= kLastYear && value.month >= 1 && value.month <= 12 &&
         value.day >= 1 && value.day <= 31 && DateOf(value).ok();
}

// The last second is 59, or 60 where a leap second is allowed.
bool IsTimeOfDay(const datetime& value, std::int32_t lastSecond) {
  return value.hour >= 0 && value.hour <= 23 && value.minute >= 0 && value.minute <= 59 &&
         value.second >= 0 && value.second <= lastSecond;
}

constexpr std::int64_t StartOf(std::int32_t ofYear) {
  return sys_seconds(sys_days(year(ofYear) / 1 / 1)).time_since_epoch().count();
}

// False outside the years 1 to 9999, which datetime cannot express.
bool FromUnixTime(std::int64_t time, datetime& value) {
  if (time < StartOf(kFirstYear) || time >= StartOf(kLastYear + 1)) return false;
  const sys_seconds moment{seconds(time)};
  const auto midnight = std::chrono::floor<std::chrono::days>(moment);
  const year_month_day date(midnight);
  const std::chrono::hh_mm_ss clock(moment - midnight);
  value.year = static_cast<int>(date.year());
  value.month = static_cast<std::int32_t>(static_cast<unsigned>(date.month()));
  value.day = static_cast<std::int32_t>(static_cast<unsigned>(date.day()));
  value.hour = static_cast<std::int32_t>(clock.hours().count());
  value.minute = static_cast<std::int32_t>(clock.minutes().count());
  value.second = static_cast<std::int32_t>(clock.seconds().count());
  return true;
}

// Consumes a date part by part. Each operation returns whether the part was there. Views the string, which
// must outlive it.
class DateReader {
 public:
  explicit DateReader(std::string_view text) : rest_(text) {}

  bool IsAtEnd() const { return rest_.empty(); }
  bool Blanks() {
    return !Take([](char c) { return c == ' '; }, 1, rest_.size()).empty();
  }
  bool Symbol(char symbol) {
    if (rest_.empty() || rest_.front() != symbol) return false;
    rest_.remove_prefix(1);
    return true;
  }
  bool Number(std::size_t least, std::size_t most, std::int32_t& value) {
    const std::string_view digits = Take([](char c) { return c >= '0' && c <= '9'; }, least, most);
    value = 0;
    for (const char digit : digits) value = value * 10 + (digit - '0');
    return !digits.empty();
  }
  // Index of the next word in the names, ignoring case, or -1.
  template <std::size_t N>
  int Name(const char* const (&names)[N]) {
    const std::string_view word =
        Take([](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }, 1, rest_.size());
    const auto isSame = [](char c, char lower) { return (c | 0x20) == lower; };  // both are letters
    for (std::size_t i = 0; i < N; ++i) {
      const std::string_view name(names[i]);
      if (std::equal(word.begin(), word.end(), name.begin(), name.end(), isSame)) return static_cast<int>(i);
    }
    return -1;
  }
  bool StartsWithLetter() const {
    return !rest_.empty() && (static_cast<unsigned char>(rest_.front()) | 0x20) >= 'a' &&
           (static_cast<unsigned char>(rest_.front()) | 0x20) <= 'z';
  }

 private:
  // Consumes the run of matching characters. Empty, and nothing consumed, unless its length is in the range.
  template <class Fits>
  std::string_view Take(Fits fits, std::size_t least, std::size_t most) {
    std::size_t length = 0;
    while (length < rest_.size() && fits(rest_[length])) ++length;
    if (length < least || length > most) return {};
    const std::string_view taken = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return taken;
  }

  std::string_view rest_;
};

bool ReadWeekday(DateReader& reader) {
  if (!reader.StartsWithLetter()) return true;
  if (reader.Name(kWeekdays) < 0 || !reader.Symbol(',')) return false;
  reader.Blanks();
  return true;
}

bool ReadDay(DateReader& reader, datetime& value) {
  if (!reader.Number(1, 2, value.day) || !reader.Blanks()) return false;
  value.month = reader.Name(kMonths) + 1;
  return value.month > 0 && reader.Blanks() && reader.Number(4, 4, value.year);
}

bool ReadTime(DateReader& reader, datetime& value) {
  if (!reader.Number(2, 2, value.hour) || !reader.Symbol(':') || !reader.Number(2, 2, value.minute)) {
    return false;
  }
  return !reader.Symbol(':') || reader.Number(2, 2, value.second);
}

// Offsets as in RFC 822: "+0130" is one hour and thirty minutes ahead of UTC.
bool ReadZone(DateReader& reader, std::int64_t& offset) {
  offset = 0;
  const bool west = reader.Symbol('-');
  if (!west && !reader.Symbol('+')) return reader.Name(kUniversalZones) >= 0;
  std::int32_t zone = 0;
  if (!reader.Number(4, 4, zone) || zone / 100 > 23 || zone % 100 > 59) return false;
  const std::int64_t minutes = zone / 100 * 60 + zone % 100;
  offset = minutes * (west ? -60 : 60);
  return true;
}

}  // namespace

int RFC1123Str2UniversalDateTime(const AnsiStr& text, datetime& value) noexcept {
  DateReader reader(text.View());
  datetime read;
  std::int64_t offset = 0;
  if (!ReadWeekday(reader) || !ReadDay(reader, read) || !reader.Blanks() || !ReadTime(reader, read) ||
      !reader.Blanks() || !ReadZone(reader, offset) || !reader.IsAtEnd()) {
    return kFailed;
  }
  constexpr std::int32_t kLeapSecond = 60;
  if (!IsDateOfCalendar(read) || !IsTimeOfDay(read, kLeapSecond)) return kFailed;
  datetime universal;
  if (!FromUnixTime(ToUnixTime(read) - offset, universal)) return kFailed;
  // Only now: on failure the caller's value stays as it is.
  value = universal;
  return 0;
}

AnsiStr DateTime2ISOStr(const datetime& value, const std::uint16_t* fraction,
                        const std::int16_t* zone) noexcept {
  AnsiStr text = FmtArgs("%04d-%02d-%02dT%02d:%02d:%02d", value.year, value.month, value.day, value.hour,
                         value.minute, value.second);
  if (fraction != nullptr) text += FmtArgs(".%03u", static_cast<unsigned>(*fraction));
  if (zone != nullptr) {
    const int minutes = *zone < 0 ? -*zone : *zone;
    text += FmtArgs("%c%02d:%02d", *zone < 0 ? '-' : '+', minutes / 60, minutes % 60);
  }
  return text;
}

bool IsValidDateTime(const datetime& value) noexcept {
  return IsDateOfCalendar(value) && IsTimeOfDay(value, 59);
}

std::int64_t ToUnixTime(const datetime& value) noexcept {
  if (!IsDateOfCalendar(value)) return StartOf(kFirstYear) - 1;
  return sys_seconds(sys_days(DateOf(value))).time_since_epoch().count() + std::int64_t{3600} * value.hour +
         std::int64_t{60} * value.minute + value.second;
}

// Takes the way through Unix time, so that carry, leap years and both directions are one computation.
datetime& AddSeconds(datetime& value, std::int64_t added) noexcept {
  if (!IsValidDateTime(value)) return value;
  std::int64_t sum = 0;
  if (__builtin_add_overflow(ToUnixTime(value), added, &sum) || !FromUnixTime(sum, value)) value = datetime();
  return value;
}

bool GetCurrentDateTime(long& year, long& month, long& day, long& hour, long& minute, long& second,
                        long& millisecond) noexcept {
  std::timespec now{};
  std::tm fields{};
  const bool known = clock_gettime(CLOCK_REALTIME, &now) == 0 && gmtime_r(&now.tv_sec, &fields) != nullptr;
  year = known ? fields.tm_year + 1900L : 0;
  month = known ? fields.tm_mon + 1L : 0;
  day = known ? fields.tm_mday : 0;
  hour = known ? fields.tm_hour : 0;
  minute = known ? fields.tm_min : 0;
  second = known ? fields.tm_sec : 0;
  millisecond = known ? now.tv_nsec / 1000000 : 0;
  return known;
}

}  // namespace OruGuiBase

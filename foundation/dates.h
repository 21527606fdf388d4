#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/datetime.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Parses an HTTP date of the RFC 1123 form ("Sun, 06 Nov 1994 08:49:37 GMT") into universal time; 0 means
/// success. `value` is left alone on failure. Weekday and seconds may be missing, the weekday need not be the
/// date's, the zone is GMT, UT, UTC, Z or an offset like "+0130", and a second 60 counts into the next
/// minute.
ORUGUI_EXPORT int RFC1123Str2UniversalDateTime(const AnsiStr& text, datetime& value) noexcept;
/// ISO 8601 text of a date, "2024-02-29T23:59:58". With `fraction` its milliseconds and with `zone` its
/// offset in minutes are added; both may be null.
ORUGUI_EXPORT AnsiStr DateTime2ISOStr(const datetime& value, const std::uint16_t* fraction,
                                      const std::int16_t* zone) noexcept;
/// Whether the fields make a date of the calendar; false for an unset value.
ORUGUI_EXPORT bool IsValidDateTime(const datetime& value) noexcept;
/// Unix time (UTC) of a date. Fields that make no date of the calendar, such as those of an unset value, give
/// the second before the year 1, so that nothing is valid yet at that time. The time of day is added as it
/// stands: a second 60 counts into the next minute.
ORUGUI_EXPORT std::int64_t ToUnixTime(const datetime& value) noexcept;
/// Adds seconds, which may be negative, with carry, and returns the same object. A date that is none stays as
/// it is; a sum outside the years 1 to 9999 is unset.
ORUGUI_EXPORT datetime& AddSeconds(datetime& value, std::int64_t added) noexcept;
/// The present universal time in fields; false, with all fields 0, when the system has none.
ORUGUI_EXPORT bool GetCurrentDateTime(long& year, long& month, long& day, long& hour, long& minute,
                                      long& second, long& millisecond) noexcept;

}  // namespace OruGuiBase

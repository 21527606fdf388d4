#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/datetime.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Parses an HTTP date in the RFC 1123 form ("Sun, 06 Nov 1994 08:49:37 GMT") into UTC. 0 means success; on
/// failure `value` stays as it is. Weekday and seconds may be missing, and the weekday is not checked against
/// the date. The zone is GMT, UT, UTC, Z or an offset like "+0130". A second 60 counts into the next minute.
ORUGUI_EXPORT int RFC1123Str2UniversalDateTime(const AnsiStr& text, datetime& value) noexcept;
/// A date in the ISO 8601 form, "2024-02-29T23:59:58". `fraction` adds milliseconds and `zone` an offset in
/// minutes; both may be null.
ORUGUI_EXPORT AnsiStr DateTime2ISOStr(const datetime& value, const std::uint16_t* fraction,
                                      const std::int16_t* zone) noexcept;
/// Whether the fields are a date of the calendar and a time of the day. False for an unset value.
ORUGUI_EXPORT bool IsValidDateTime(const datetime& value) noexcept;
/// Unix time (UTC) of a date. Fields that are no date of the calendar, such as those of an unset value, give
/// the second before the year 1, so that no certificate is valid yet at that time. The time of day is not
/// checked: a second 60 counts into the next minute.
ORUGUI_EXPORT std::int64_t ToUnixTime(const datetime& value) noexcept;
/// Adds seconds, which may be negative, with carry, and returns the same object. An invalid date stays as it
/// is. A sum outside the years 1 to 9999 makes the date unset.
ORUGUI_EXPORT datetime& AddSeconds(datetime& value, std::int64_t added) noexcept;
/// The current time (UTC) in fields. False, with all fields 0, if the system cannot provide it.
ORUGUI_EXPORT bool GetCurrentDateTime(long& year, long& month, long& day, long& hour, long& minute,
                                      long& second, long& millisecond) noexcept;

}  // namespace OruGuiBase

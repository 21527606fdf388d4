#pragma once

#include <cstdint>

#include "foundation/export.h"

namespace OruGuiBase {

/// A date and time in plain fields, in UTC unless stated otherwise. All fields 0 mean unset.
struct datetime {
  std::int32_t year = 0;
  std::int32_t month = 0;
  std::int32_t day = 0;
  std::int32_t hour = 0;
  std::int32_t minute = 0;
  std::int32_t second = 0;

  friend bool operator==(const datetime&, const datetime&) = default;
};

using DateTime = datetime;

/// A date and time in seven bytes: a 32-bit word, a 16-bit word and a byte, in the machine's byte order.
///
///   word    bits 0-9 milliseconds, 10-15 second, 16-21 minute, 22-26 hour, 27-31 day
///   half    bits 0-3 month, 4-15 year
///   zone    bits 0-5 quarter hours from UTC, 6 set if negative, 7 spare
class ORUGUI_EXPORT PackedDateTime {
 public:
  /// Packs the fields. False, without a change, unless each field is in its range (year 1 to 4095) and the
  /// zone is a whole number of quarter hours from -720 to 720 minutes. The spare bit stays as it was.
  bool Pack(std::uint32_t year, std::uint32_t month, std::uint32_t day, std::uint32_t hour,
            std::uint32_t minute, std::uint32_t second, std::uint16_t milliseconds,
            std::int16_t zoneMinutes) noexcept;
  /// The fields without milliseconds and zone.
  datetime Unpack() const noexcept;
  /// The fields that Unpack() drops. Part of the published value; nothing here reads them.
  std::uint32_t GetMilliseconds() const noexcept;
  std::int32_t GetZoneMinutes() const noexcept;

  /// The seven bytes as a number: word, half and zone, from the low end.
  std::uint64_t ToBits() const noexcept;
  static PackedDateTime FromBits(std::uint64_t bits) noexcept;

 private:
  unsigned char bytes_[7] = {};
};

static_assert(sizeof(PackedDateTime) == 7 && sizeof(datetime) == 24);

}  // namespace OruGuiBase

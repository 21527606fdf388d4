// Packs a date into seven bytes, the form in which a Val has it. The layout is fixed, and a test checks each
// bit.

#include "foundation/datetime.h"

#include <cstddef>
#include <cstring>

namespace OruGuiBase {

static_assert(offsetof(datetime, year) == 0 && offsetof(datetime, month) == 4 &&
              offsetof(datetime, day) == 8 && offsetof(datetime, hour) == 12 &&
              offsetof(datetime, minute) == 16 && offsetof(datetime, second) == 20);

namespace {

// Offsets of the second word and of the zone byte, and the bits of that byte.
constexpr std::size_t kHalf = 4;
constexpr std::size_t kZone = 6;
constexpr unsigned kSpareBit = 0x80;
constexpr unsigned kNegativeBit = 0x40;
constexpr unsigned kQuarterHours = 0x3F;

bool IsBetween(std::uint32_t value, std::uint32_t low, std::uint32_t high) {
  return value >= low && value <= high;
}

// memcpy, because the words are not aligned in an array of seven-byte values.
std::uint32_t LoadWord(const unsigned char* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

std::uint32_t LoadHalf(const unsigned char* bytes) {
  std::uint16_t half = 0;
  std::memcpy(&half, bytes + kHalf, sizeof half);
  return half;
}

std::int32_t Field(std::uint32_t bits, unsigned place, unsigned width) {
  return static_cast<std::int32_t>((bits >> place) & ((1U << width) - 1));
}

}  // namespace

bool PackedDateTime::Pack(std::uint32_t year, std::uint32_t month, std::uint32_t day, std::uint32_t hour,
                          std::uint32_t minute, std::uint32_t second, std::uint16_t milliseconds,
                          std::int16_t zoneMinutes) noexcept {
  const int zone = zoneMinutes;
  if (!IsBetween(year, 1, 4095) || !IsBetween(month, 1, 12) || !IsBetween(day, 1, 31) || hour > 23 ||
      minute > 59 || second > 59 || milliseconds > 999 || zone < -720 || zone > 720 || zone % 15 != 0) {
    return false;
  }
  // Nothing was changed until here, so a refused date leaves the old one.
  const std::uint32_t word = milliseconds | second << 10 | minute << 16 | hour << 22 | day << 27;
  const auto half = static_cast<std::uint16_t>(month | year << 4);
  const unsigned magnitude = static_cast<unsigned>(zone < 0 ? -zone : zone) / 15;
  std::memcpy(bytes_, &word, sizeof word);
  std::memcpy(bytes_ + kHalf, &half, sizeof half);
  bytes_[kZone] =
      static_cast<unsigned char>((bytes_[kZone] & kSpareBit) | (zone < 0 ? kNegativeBit : 0) | magnitude);
  return true;
}

datetime PackedDateTime::Unpack() const noexcept {
  const std::uint32_t word = LoadWord(bytes_);
  const std::uint32_t half = LoadHalf(bytes_);
  return {Field(half, 4, 12), Field(half, 0, 4),  Field(word, 27, 5),
          Field(word, 22, 5), Field(word, 16, 6), Field(word, 10, 6)};
}

std::uint32_t PackedDateTime::GetMilliseconds() const noexcept {
  return LoadWord(bytes_) & 0x3FF;
}

std::int32_t PackedDateTime::GetZoneMinutes() const noexcept {
  const int magnitude = static_cast<int>(bytes_[kZone] & kQuarterHours) * 15;
  return (bytes_[kZone] & kNegativeBit) != 0 ? -magnitude : magnitude;
}

std::uint64_t PackedDateTime::ToBits() const noexcept {
  return LoadWord(bytes_) | std::uint64_t{LoadHalf(bytes_)} << 32 | std::uint64_t{bytes_[kZone]} << 48;
}

PackedDateTime PackedDateTime::FromBits(std::uint64_t bits) noexcept {
  const auto word = static_cast<std::uint32_t>(bits);
  const auto half = static_cast<std::uint16_t>(bits >> 32);
  PackedDateTime value;
  std::memcpy(value.bytes_, &word, sizeof word);
  std::memcpy(value.bytes_ + kHalf, &half, sizeof half);
  value.bytes_[kZone] = static_cast<unsigned char>(bits >> 48);
  return value;
}

}  // namespace OruGuiBase

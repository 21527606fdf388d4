// Decimal numbers in settings, in responses and in strings with counters. The C library's functions would
// accept blanks and a plus sign, and depend on the locale.

#include "foundation/numbers.h"

#include <charconv>
#include <limits>

namespace OruGuiBase {

namespace {

constexpr int kFailed = 1;  // any number but 0, which means success

// A decimal number as it was read. Sign and magnitude are separate, because the smallest signed value has no
// positive counterpart.
struct Decimal {
  std::uint64_t magnitude = 0;
  bool negative = false;
};

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

// Checks before it multiplies, so that the value never wraps.
bool AddDigit(std::uint64_t& value, char digit) {
  const auto number = static_cast<std::uint64_t>(digit - '0');
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  if (value > (kMax - number) / 10) return false;
  value = value * 10 + number;
  return true;
}

// Leading zeros count as digits: `limit` is the length that a number of the field may have.
bool ReadDecimal(const AnsiStr& text, const char** end, bool sign, std::uint32_t limit, Decimal& result) {
  const char* at = text.GetText();
  const char* const last = at + text.GetLength();
  if (sign && at != last && *at == '-') {
    result.negative = true;
    ++at;
  }
  std::uint32_t digits = 0;
  for (; at != last && IsDigit(*at); ++at) {
    if (++digits > limit || !AddDigit(result.magnitude, *at)) return false;
  }
  if (digits == 0 || (end == nullptr && at != last)) return false;
  if (end != nullptr) *end = at;
  return true;
}

}  // namespace

void UHyper2Str(char* buffer, std::uint64_t value) noexcept {
  *std::to_chars(buffer, buffer + kUHyperDigits, value).ptr = '\0';
}

// "-0" is accepted with `sign`; any other negative number is out of range.
int Str2ULong(const AnsiStr& text, const char** end, std::uint32_t& value, bool sign,
              std::uint32_t limit) noexcept {
  const char* stop = nullptr;
  Decimal number;
  if (!ReadDecimal(text, end != nullptr ? &stop : nullptr, sign, limit, number)) return kFailed;
  if (number.magnitude > (number.negative ? 0 : std::numeric_limits<std::uint32_t>::max())) return kFailed;
  value = static_cast<std::uint32_t>(number.magnitude);
  if (end != nullptr) *end = stop;
  return 0;
}

int Str2Hyper(const AnsiStr& text, const char** end, std::int64_t& value, bool sign,
              std::uint32_t limit) noexcept {
  const char* stop = nullptr;
  Decimal number;
  if (!ReadDecimal(text, end != nullptr ? &stop : nullptr, sign, limit, number)) return kFailed;
  constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (number.magnitude > kMax + (number.negative ? 1 : 0)) return kFailed;
  value = static_cast<std::int64_t>(number.negative ? 0 - number.magnitude : number.magnitude);
  if (end != nullptr) *end = stop;
  return 0;
}

}  // namespace OruGuiBase

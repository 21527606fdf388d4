// Encodings of bytes and strings: base64 (RFC 4648) and hexadecimal, for keys and signatures in JSON and for
// certificates; %XX for URLs; and the check for UTF-8 that JSON and file names need.

#include "foundation/encoding.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "foundation/errorstate.h"

namespace OruGuiBase {

namespace {

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUpperHex[] = "0123456789ABCDEF";
constexpr char kLowerHex[] = "0123456789abcdef";
constexpr std::uint64_t kMaxText = 0xFFFFFFFFU;

// Meanings of a character in a DigitTable besides the values of digits, which are at most 63.
constexpr std::uint8_t kBad = 0xFF;
constexpr std::uint8_t kSkip = 0xFE;
constexpr std::uint8_t kPad = 0xFD;

using DigitTable = std::array<std::uint8_t, 256>;

constexpr std::size_t IndexOf(char character) {
  return static_cast<unsigned char>(character);
}

// Digits are entered after the ignored characters, so that a digit is never ignored.
DigitTable MakeTable(const char* ignored) {
  DigitTable table;
  table.fill(kBad);
  for (const char* at = ignored; at != nullptr && *at != '\0'; ++at) table[IndexOf(*at)] = kSkip;
  return table;
}

DigitTable MakeBase64Table(const char* ignored) {
  DigitTable table = MakeTable(ignored);
  for (std::uint8_t i = 0; i < 64; ++i) table[IndexOf(kBase64[i])] = i;
  table[IndexOf('=')] = kPad;
  return table;
}

DigitTable MakeHexTable(const char* ignored) {
  DigitTable table = MakeTable(ignored);
  for (std::uint8_t i = 0; i < 16; ++i) {
    table[IndexOf(kUpperHex[i])] = i;
    table[IndexOf(kLowerHex[i])] = i;
  }
  return table;
}

bool Refuse(const char* reason) {
  SetErrorMessage(reason);
  return false;
}

// Collects decoded bytes in the caller's memory, which must outlive it. Put is false when it is full.
class Target {
 public:
  Target(void* target, std::uint32_t capacity)
      : bytes_(static_cast<std::uint8_t*>(target)), capacity_(capacity) {}
  bool Put(std::uint32_t byte) {
    if (size_ == capacity_) return false;
    bytes_[size_++] = static_cast<std::uint8_t>(byte);
    return true;
  }
  std::uint32_t GetSize() const { return size_; }

 private:
  std::uint8_t* bytes_;
  std::uint32_t capacity_;
  std::uint32_t size_ = 0;
};

constexpr const char* kTooSmall = "The decoded bytes do not fit their buffer";
constexpr const char* kNotBase64 = "The text is not base64";
constexpr const char* kNotHex = "The text is not hexadecimal";

// One group of four base64 characters while it is read: digits, then padding in at most the last two places.
struct Quartet {
  std::uint32_t bits = 0;
  unsigned digits = 0;
  unsigned pads = 0;

  bool Add(std::uint8_t code) {
    if (code == kPad) {
      ++pads;
      return digits >= 2;
    }
    if (pads != 0) return false;
    bits = bits << 6 | code;
    ++digits;
    return true;
  }
  bool IsFull() const { return digits + pads == 4; }
  bool IsEmpty() const { return digits + pads == 0; }
  // The bits that padding cuts off must be 0 (RFC 4648, section 3.5), so that each value has one encoding.
  bool IsCanonical() const { return (bits & ((1U << (pads * 2)) - 1)) == 0; }
  bool Flush(Target& target) const {
    const std::uint32_t word = bits << (6 * pads);
    for (unsigned i = 0; i < 3 - pads; ++i) {
      if (!target.Put(word >> (16 - 8 * i))) return false;
    }
    return true;
  }
};

// RFC 3986, section 2.3.
bool IsUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

bool IsBlankOrControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= 0x20 || byte == 0x7F;
}

std::uint32_t CheckedLength(std::uint64_t length) {
  if (length > kMaxText) DebugAbort("UInt32 overflow");
  return static_cast<std::uint32_t>(length);
}

// Allocates a string of `length` characters, not 0, and returns them for writing. Aborts on failure.
char* AllocText(AnsiStr& text, std::uint64_t length) {
  char* const characters = text.Alloc(CheckedLength(length));
  if (characters == nullptr) DebugAbort("Could not allocate string");
  return characters;
}

// Encodes one to three bytes as four characters, with padding for the missing ones (RFC 4648, section 4).
void EncodeTriple(const std::uint8_t* bytes, std::uint32_t count, char* quartet) {
  std::uint32_t bits = 0;
  for (std::uint32_t i = 0; i < 3; ++i) bits = bits << 8 | (i < count ? bytes[i] : 0U);
  quartet[0] = kBase64[bits >> 18];
  quartet[1] = kBase64[bits >> 12 & 63];
  quartet[2] = count > 1 ? kBase64[bits >> 6 & 63] : '=';
  quartet[3] = count > 2 ? kBase64[bits & 63] : '=';
}

// A second string instead of one with line ends from the start: lines are rare, and the encoder stays simple.
AnsiStr BreakLines(const AnsiStr& text, std::uint32_t lineLength, const char* lineEnd) {
  const std::string_view all = text.View();
  AnsiStr broken;
  for (std::size_t start = 0; start < all.size(); start += lineLength) {
    if (start != 0) broken += lineEnd;
    broken.Append(all.substr(start, lineLength));
  }
  return broken;
}

// Length of the UTF-8 sequence at `at`, which begins with a byte above 0x7F; 0 if it is not well-formed (RFC
// 3629, section 4).
std::uint32_t SequenceLength(const unsigned char* at, const unsigned char* end) {
  const unsigned lead = *at;
  const std::uint32_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || end - at < static_cast<std::ptrdiff_t>(length)) return 0;
  for (std::uint32_t i = 1; i < length; ++i) {
    if ((at[i] & 0xC0) != 0x80) return 0;
  }
  const unsigned second = at[1];
  const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  const bool surrogate = lead == 0xED && second > 0x9F;
  const bool tooHigh = lead == 0xF4 && second > 0x8F;
  return overlong || surrogate || tooHigh ? 0 : length;
}

// Eight bytes at once, as nearly all strings are ASCII.
const unsigned char* SkipASCII(const unsigned char* at, const unsigned char* end) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  for (std::uint64_t eight = 0; end - at >= 8; at += 8) {
    std::memcpy(&eight, at, sizeof eight);
    if ((eight & kHighBits) != 0) break;
  }
  while (at != end && *at < 0x80) ++at;
  return at;
}

}  // namespace

// Shares the string if there is nothing to cut.
AnsiStr CleanStr(const AnsiStr& text) noexcept {
  std::string_view rest = text.View();
  while (!rest.empty() && IsBlankOrControl(rest.front())) rest.remove_prefix(1);
  while (!rest.empty() && IsBlankOrControl(rest.back())) rest.remove_suffix(1);
  return rest.size() == text.GetLength() ? text : AnsiStr(rest);
}

// Byte by byte, so that UTF-8 and bytes that are not text become %XX too.
AnsiStr EscapeURL(const AnsiStr& text) noexcept {
  const std::string_view plain = text.View();
  if (std::all_of(plain.begin(), plain.end(), IsUnreserved)) return text;
  AnsiStr escaped;
  escaped.Reserve(text.GetLength());
  for (const char character : text.View()) {
    if (IsUnreserved(character)) {
      escaped += character;
      continue;
    }
    const std::size_t byte = IndexOf(character);
    const char code[] = {'%', kUpperHex[byte >> 4], kUpperHex[byte & 15]};
    escaped.Append(code, sizeof code);
  }
  return escaped;
}

AnsiStr Binary2B64Str(const void* data, std::uint32_t size, std::uint32_t lineLength,
                      const char* lineEnd) noexcept {
  const auto* const bytes = static_cast<const std::uint8_t*>(data);
  AnsiStr text;
  if (size == 0) return text;
  char* at = AllocText(text, (std::uint64_t{size} + 2) / 3 * 4);
  for (std::uint32_t rest = size; rest != 0; at += 4) {
    const std::uint32_t count = rest < 3 ? rest : 3;
    EncodeTriple(bytes + (size - rest), count, at);
    rest -= count;
  }
  return lineLength != 0 ? BreakLines(text, lineLength, lineEnd) : text;
}

// Strict: each sequence of bytes has exactly one accepted encoding, apart from ignored characters. Nothing
// may follow the padding, and the last group must be complete. Bytes before a fault are already in `target`;
// `size` stays as it was.
bool B64Str2Binary(const AnsiStr& text, void* target, std::uint32_t& size, const char* ignored) noexcept {
  ClearLastError();
  const DigitTable table = MakeBase64Table(ignored);
  Target bytes(target, size);
  Quartet quartet;
  bool ended = false;
  for (const char character : text.View()) {
    const std::uint8_t code = table[IndexOf(character)];
    if (code == kSkip) continue;
    if (code == kBad || ended || !quartet.Add(code)) return Refuse(kNotBase64);
    if (!quartet.IsFull()) continue;
    if (!quartet.IsCanonical()) return Refuse(kNotBase64);
    if (!quartet.Flush(bytes)) return Refuse(kTooSmall);
    ended = quartet.pads != 0;
    quartet = Quartet();
  }
  if (!quartet.IsEmpty()) return Refuse(kNotBase64);
  size = bytes.GetSize();
  return true;
}

bool B64Str2Blob(const AnsiStr& text, Blob& bytes, const char* ignored) noexcept {
  // Three bytes for four characters. Padding and ignored characters make the guess too large, never too
  // small.
  auto size = static_cast<std::uint32_t>(std::uint64_t{text.GetLength()} * 3 / 4);
  std::uint8_t* const target = bytes.Alloc(size);
  if (target == nullptr && size != 0) {
    SetLastError(ENOMEM);
    return false;
  }
  if (!B64Str2Binary(text, target, size, ignored)) {
    bytes.Clear();
    return false;
  }
  bytes.Trunc(size);
  return true;
}

// The first digit of a byte waits in `high`; kBad stands for none.
bool B16Str2Binary(const AnsiStr& text, void* target, std::uint32_t& size, const char* ignored) noexcept {
  ClearLastError();
  const DigitTable table = MakeHexTable(ignored);
  Target bytes(target, size);
  std::uint32_t high = kBad;
  for (const char character : text.View()) {
    const std::uint8_t code = table[IndexOf(character)];
    if (code == kSkip) continue;
    if (code == kBad) return Refuse(kNotHex);
    if (high == kBad) {
      high = code;
      continue;
    }
    if (!bytes.Put(high << 4 | code)) return Refuse(kTooSmall);
    high = kBad;
  }
  if (high != kBad) return Refuse(kNotHex);
  size = bytes.GetSize();
  return true;
}

AnsiStr Binary2B16Str(const void* data, std::uint32_t size, bool upperCase) noexcept {
  const auto* const bytes = static_cast<const std::uint8_t*>(data);
  const char* const digits = upperCase ? kUpperHex : kLowerHex;
  AnsiStr text;
  if (size == 0) return text;
  char* at = AllocText(text, std::uint64_t{size} * 2);
  for (std::uint32_t i = 0; i < size; ++i) {
    *at++ = digits[bytes[i] >> 4];
    *at++ = digits[bytes[i] & 15];
  }
  return text;
}

bool IsValidUTF8(const char* text, std::uint32_t length) noexcept {
  const auto* at = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* const end = at + length;
  while ((at = SkipASCII(at, end)) != end) {
    const std::uint32_t taken = SequenceLength(at, end);
    if (taken == 0) return false;
    at += taken;
  }
  return true;
}

}  // namespace OruGuiBase

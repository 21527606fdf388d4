// Writes JSON for Val2JSON: the bodies of requests to the key servers and the crypt service. They carry keys,
// so all of it is built in one AnsiStr, which is wiped when it is freed.

#include "foundation/json_emitter.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

#include "foundation/encoding.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "foundation/kvmap.h"

namespace OruGuiBase {

namespace {

constexpr std::uint32_t kMaxText = 0xFFFFFFFFU;

// The letter after the backslash that stands for a character; 'u' for the form \u00XX, 0 if it needs no
// escape. RFC 8259, section 7.
char EscapeOf(char character) {
  switch (character) {
    case '"':
      return '"';
    case '\\':
      return '\\';
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return static_cast<unsigned char>(character) < 0x20 ? 'u' : '\0';
  }
}

constexpr std::uint64_t EightOf(std::uint64_t byte) {
  return byte * 0x0101010101010101U;
}

// True if any of eight bytes is below `limit` (at most 0x80). May also be true if none is; then they are
// looked at singly.
bool HasBelow(std::uint64_t eight, std::uint64_t limit) {
  return ((eight - EightOf(limit)) & ~eight & EightOf(0x80)) != 0;
}

// The first index from `at` on whose character must be escaped, or the size. Tests eight bytes at once:
// bodies are long and need few escapes.
std::size_t NextEscape(std::string_view text, std::size_t at) {
  for (std::uint64_t eight = 0; text.size() - at >= sizeof eight; at += sizeof eight) {
    std::memcpy(&eight, text.data() + at, sizeof eight);
    if (HasBelow(eight, 0x20) || HasBelow(eight ^ EightOf('"'), 1) || HasBelow(eight ^ EightOf('\\'), 1))
      break;
  }
  while (at < text.size() && EscapeOf(text[at]) == '\0') ++at;
  return at;
}

// Writes one value. Lives on the stack of EmitJSON; a reason of failure goes to `error`, which must outlive
// it.
class Emitter {
 public:
  // 512 bytes are enough for most requests.
  explicit Emitter(AnsiStr& error) : error_(error) { text_.Reserve(512); }

  bool Write(const Val& value, std::uint32_t depth);
  AnsiStr TakeText() { return std::move(text_); }

 private:
  bool Fail(const char* reason) {
    error_ = reason;
    return false;
  }
  bool Put(std::string_view text);
  bool PutEscaped(char character, char escape);
  bool WriteString(const AnsiStr& value);
  bool WriteInteger(std::int64_t value);
  bool WriteNumber(double value);
  bool WriteMap(const KVMap& map, std::uint32_t depth);
  bool WriteArray(const Array<Val>& array, std::uint32_t depth);

  AnsiStr text_;
  AnsiStr& error_;
};

// AnsiStr would only trace an append that passes 32 bits, and drop it.
bool Emitter::Put(std::string_view text) {
  if (text.size() > kMaxText - text_.GetLength()) return Fail("The JSON text would pass 32 bits");
  text_.Append(text);
  return true;
}

bool Emitter::PutEscaped(char character, char escape) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character);
  const char longForm[] = {'\\', 'u', '0', '0', kDigits[byte >> 4], kDigits[byte & 15]};
  const char shortForm[] = {'\\', escape};
  return escape == 'u' ? Put({longForm, sizeof longForm}) : Put({shortForm, sizeof shortForm});
}

// Appends whole runs: most strings have nothing to escape.
bool Emitter::WriteString(const AnsiStr& value) {
  const std::string_view text = value.View();
  if (!IsValidUTF8(text.data(), value.GetLength())) return Fail("A string is not valid UTF-8");
  if (!Put("\"")) return false;
  for (std::size_t run = 0; run < text.size();) {
    const std::size_t end = NextEscape(text, run);
    if (!Put(text.substr(run, end - run))) return false;
    if (end == text.size()) break;
    if (!PutEscaped(text[end], EscapeOf(text[end]))) return false;
    run = end + 1;
  }
  return Put("\"");
}

bool Emitter::WriteInteger(std::int64_t value) {
  char digits[24];
  const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return Put({digits, static_cast<std::size_t>(end - digits)});
}

// A whole number gets ".0", so that it is read back as ValType::Number and not as an integer.
bool Emitter::WriteNumber(double value) {
  if (!std::isfinite(value)) return Fail("A number is not finite");
  char digits[32];
  const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  const std::string_view text(digits, static_cast<std::size_t>(end - digits));
  const bool isWhole = text.find_first_of(".e") == std::string_view::npos;
  return Put(text) && (!isWhole || Put(".0"));
}

bool Emitter::WriteMap(const KVMap& map, std::uint32_t depth) {
  if (!Put("{")) return false;
  bool isFirst = true;
  for (const auto& [key, value] : map) {
    if (!std::exchange(isFirst, false) && !Put(",")) return false;
    if (!WriteString(key) || !Put(":") || !Write(value, depth)) return false;
  }
  return Put("}");
}

bool Emitter::WriteArray(const Array<Val>& array, std::uint32_t depth) {
  if (!Put("[")) return false;
  bool isFirst = true;
  for (const Val& element : array) {
    if (!std::exchange(isFirst, false) && !Put(",")) return false;
    if (!Write(element, depth)) return false;
  }
  return Put("]");
}

bool Emitter::Write(const Val& value, std::uint32_t depth) {
  switch (value.GetType()) {
    case ValType::Nil:
      return Put("null");
    case ValType::Bool:
      return Put(value.AsBool() ? "true" : "false");
    case ValType::Integer:
      return WriteInteger(value.AsInteger());
    case ValType::Number:
      return WriteNumber(value.AsNumber());
    case ValType::String:
      return WriteString(value.AsString());
    case ValType::Map:
    case ValType::Array:
      break;
    default:
      error_ = FmtArgs("A value of type %u has no form in JSON", static_cast<unsigned>(value.GetType()));
      return false;
  }
  if (depth == kMaxJSONDepth) return Fail("Containers are nested too deeply for JSON");
  return value.GetType() == ValType::Map ? WriteMap(value.AsMap(), depth + 1)
                                         : WriteArray(value.AsArray(), depth + 1);
}

}  // namespace

bool EmitJSON(const Val& value, AnsiStr& text, AnsiStr& error) noexcept {
  Emitter emitter(error);
  if (!emitter.Write(value, 0)) return false;
  text = emitter.TakeText();
  return true;
}

}  // namespace OruGuiBase

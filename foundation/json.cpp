// Reads JSON for JSON2Val: the responses of the key servers and the crypt service, which are not trusted. The
// engine only splits the input into events; JSONBuilder makes the values, so that their strings are wiped
// when they are freed.

#include "foundation/json.h"

#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cmath>
#include <exception>
#include <functional>
#include <system_error>
#include <vector>

#include "foundation/format.h"
#include "foundation/json_builder.h"
#include "foundation/json_emitter.h"

namespace OruGuiBase {

namespace {

namespace engine = boost::json;

// Passes the parser's events on to the builder. The parser owns it; the input must outlive it. Returning
// false with an error code ends the parse.
class Handler {
 public:
  // The counts of Array and AnsiStr have 32 bits.
  static constexpr std::size_t max_array_size = 0xFFFFFFFFU;
  static constexpr std::size_t max_object_size = 0xFFFFFFFFU;
  static constexpr std::size_t max_string_size = 0xFFFFFFFFU;
  static constexpr std::size_t max_key_size = 0xFFFFFFFFU;

  using Code = engine::error_code;
  using View = engine::string_view;

  explicit Handler(std::string_view text) : text_(text) {}

  bool on_document_begin(Code&) { return true; }
  bool on_document_end(Code&) { return true; }
  bool on_array_begin(Code&) { return builder_.BeginArray(), true; }
  bool on_array_end(std::size_t, Code&) { return builder_.EndArray(), true; }
  bool on_object_begin(Code&) { return builder_.BeginMap(), true; }
  bool on_object_end(std::size_t, Code&) { return builder_.EndMap(), true; }
  bool on_string_part(View part, std::size_t, Code&) { return AddPart(part), true; }
  bool on_string(View part, std::size_t, Code&) { return builder_.Add(Val(EndText(part))), true; }
  bool on_key_part(View part, std::size_t, Code&) { return AddPart(part), true; }
  bool on_key(View part, std::size_t, Code&) { return builder_.AddKey(EndText(part)), true; }
  bool on_number_part(View, Code&) { return true; }
  bool on_int64(std::int64_t value, View, Code&) { return builder_.Add(Val(value)), true; }
  // More than a signed integer can hold.
  bool on_uint64(std::uint64_t value, View number, Code& code) {
    return AddNumber(number, static_cast<double>(value), code);
  }
  bool on_double(double value, View number, Code& code) {
    if (HasLongExponent(number)) {
      code = engine::error::exponent_overflow;
      return false;
    }
    return AddNumber(number, value, code);
  }
  bool on_bool(bool value, Code&) { return builder_.Add(Val(value)), true; }
  bool on_null(Code&) { return builder_.Add(Val()), true; }
  // Never called, as comments are not enabled; the engine wants them to exist.
  bool on_comment_part(View, Code&) { return true; }
  bool on_comment(View, Code&) { return true; }

  Val TakeResult() { return builder_.TakeResult(); }

 private:
  // One version of the engine refuses exponents from about 2^31 on, another reads them. A limit of our own,
  // nine digits, makes both behave the same.
  static bool HasLongExponent(std::string_view number) {
    const std::size_t mark = number.find_first_of("eE");
    if (mark == number.npos) return false;
    const std::size_t digits = number.find_first_not_of("+-0", mark + 1);
    return digits != number.npos && number.size() - digits > 9;
  }

  // Reads the number again from its characters, because the parser's own arithmetic is sometimes off by one
  // unit in the last place. `number` is complete, since the parser gets all of its input at once. A number
  // that is too small for a double becomes 0.
  bool AddNumber(View number, double nearly, Code& code) {
    double value = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
      value = std::abs(nearly) < 1 ? std::copysign(0.0, nearly) : HUGE_VAL;
    }
    if (!std::isfinite(value)) {
      code = engine::error::exponent_overflow;
      return false;
    }
    builder_.Add(Val(value));
    return true;
  }

  // A part is in the input or, if it had escapes, in a buffer of the parser, which is not wiped by itself.
  void AddPart(View part) {
    partial_.Append(part.data(), static_cast<std::uint32_t>(part.size()));
    WipeBuffer(part);
  }

  AnsiStr EndText(View part) {
    AnsiStr whole = std::move(partial_);
    whole.Append(part.data(), static_cast<std::uint32_t>(part.size()));
    WipeBuffer(part);
    return whole;
  }

  void WipeBuffer(View part) {
    const std::less<const char*> before;
    const bool isInput =
        !before(part.data(), text_.data()) && !before(text_.data() + text_.size(), part.data());
    if (!isInput) WipeMemory(const_cast<char*>(part.data()), part.size());
  }

  std::string_view text_;
  JSONBuilder builder_;
  AnsiStr partial_;  // the parts so far of a string or key; wiped when freed
};

// Our own words: those of the engine differ between its versions, and operators compare messages.
const char* ReasonOf(const engine::error_code& code) {
  switch (static_cast<engine::error>(code.value())) {
    case engine::error::extra_data:
      return "more text after the value";
    case engine::error::incomplete:
      return "unexpected end";
    case engine::error::exponent_overflow:
      return "number out of range";
    case engine::error::too_deep:
      return "containers nested too deeply";
    case engine::error::illegal_leading_surrogate:
    case engine::error::illegal_trailing_surrogate:
      return "surrogate without its other half";
    case engine::error::expected_hex_digit:
      return "hexadecimal digit expected";
    case engine::error::object_too_large:
    case engine::error::array_too_large:
    case engine::error::key_too_large:
    case engine::error::string_too_large:
      return "value too large";
    default:
      return "unexpected character";
  }
}

// Whether the input ends inside a string. A quotation mark opens or closes one unless it is escaped.
bool EndsInString(std::string_view text) {
  bool isOpen = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isOpen && text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      isOpen = !isOpen;
    }
  }
  return isOpen;
}

// The position that is reported: where a refused number or a misspelt word begins, because the engine's
// versions stop at different bytes inside them; for any other fault where the engine stopped.
std::size_t StartOfFault(std::string_view text, std::size_t place, const engine::error_code& code) {
  const std::string_view before = text.substr(0, place);
  if (code == engine::error::exponent_overflow) return before.find_last_not_of("+-.0123456789eE") + 1;
  if (code != engine::error::syntax || EndsInString(before)) return place;
  const std::size_t start = before.find_last_not_of("aeflnrstu") + 1;
  for (const std::string_view word : {"true", "false", "null"}) {
    if (word.substr(0, word.size() - 1).starts_with(before.substr(start))) return start;
  }
  return place;
}

// The whole input in one call: the handler relies on numbers that are not cut in parts.
bool Parse(std::string_view text, Val& value, AnsiStr& error) {
  engine::parse_options options;
  options.max_depth = kMaxJSONDepth;
  engine::basic_parser<Handler> parser(options, text);
  engine::error_code code;
  const std::size_t used = parser.write_some(false, text.data(), text.size(), code);
  if (!code && used < text.size()) code = engine::error::extra_data;
  if (code) {
    error = FmtArgs("Invalid JSON: %s at byte %zu", ReasonOf(code), StartOfFault(text, used, code));
    return false;
  }
  value = parser.handler().TakeResult();
  return true;
}

}  // namespace

bool JSON2Val(const AnsiStr& text, Val& value, AnsiStr& error) noexcept {
  try {
    return Parse(text.View(), value, error);
  } catch (const std::exception&) {
    // The engine and the builder throw only on allocation failure.
    error = "Invalid JSON: not enough memory to read it";
    return false;
  }
}

bool Val2JSON(const Val& value, AnsiStr& text, AnsiStr& error, [[maybe_unused]] bool pretty,
              [[maybe_unused]] bool strict) noexcept {
  return EmitJSON(value, text, error);
}

}  // namespace OruGuiBase

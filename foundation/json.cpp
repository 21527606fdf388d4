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

// Turns the parser's events into the calls of the builder. Returning false with an error ends the parse.
class Handler {
 public:
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
  bool on_comment_part(View, Code&) { return true; }
  bool on_comment(View, Code&) { return true; }

  Val TakeResult() { return builder_.TakeResult(); }

 private:
  // Exponents from about 2^31 are refused by one version of the engine and read by another, so that we have
  // a limit below, of nine digits.
  static bool HasLongExponent(std::string_view number) {
    const std::size_t mark = number.find_first_of("eE");
    if (mark == number.npos) return false;
    const std::size_t digits = number.find_first_not_of("+-0", mark + 1);
    return digits != number.npos && number.size() - digits > 9;
  }

  // The parser's own arithmetic is off by a unit now and then, so the number's text is read again. The text
  // is whole, as the parser is given all of its input at once. Too small for a double is as good as 0.
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

  // Parts lie either in the input or, with their escapes resolved, in a buffer of the parser.
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
  AnsiStr partial_;  // what is known of the string or key in progress; wiped when freed
};

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

// Whether a string is open at the end of the text. A quotation mark opens or closes one unless it is escaped.
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

// Where a refused number or a misspelt word begins, any other fault being where the engine stopped: its
// versions stop at different places in those two.
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
    // The engine and the builder throw for lack of memory alone.
    error = "Invalid JSON: not enough memory to read it";
    return false;
  }
}

bool Val2JSON(const Val& value, AnsiStr& text, AnsiStr& error, [[maybe_unused]] bool pretty,
              [[maybe_unused]] bool strict) noexcept {
  return EmitJSON(value, text, error);
}

}  // namespace OruGuiBase

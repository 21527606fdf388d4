// Reads the members of control requests and says which one is wrong and what it may be: whoever writes such a
// request by hand learns from the response alone how to correct it.
#include "stand/control_input.h"

#include <algorithm>
#include <charconv>

#include "stand/control_json.h"

namespace CryptStand {
namespace {

using OruGuiBase::ValType;

std::string Quote(const char* name) {
  return "\"" + std::string(name) + "\"";
}

// No value unless the whole string is a number.
std::optional<std::int64_t> ParseWhole(std::string_view digits) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool isWhole = error == std::errc() && end == digits.data() + digits.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

}  // namespace

// Names of members may come from a query, which can have any bytes.
HttpReply ErrorReply(const ControlError& error) {
  KVMap object;
  object.Set("code", TextVal(error.code));
  object.Set("message", PrintableVal(error.message));
  if (!error.member.empty()) object.Set("member", PrintableVal(error.member));
  if (!error.allowed.empty()) object.Set("allowed", TextsVal(error.allowed));
  KVMap whole;
  whole.Set("error", Val(object));
  return JsonReply(whole, error.status);
}

void ControlInput::Refuse(const char* member, std::string message, std::vector<std::string> allowed) {
  if (error_.has_value()) return;
  error_ = ControlError{.message = std::move(message), .member = member, .allowed = std::move(allowed)};
}

std::string ControlInput::ReadString(const char* name, std::string fallback) {
  if (!Has(name)) return fallback;
  auto text = ReadText(members_, name);
  if (!text.has_value()) Refuse(name, Quote(name) + " must be a string");
  return std::move(text).value_or(std::move(fallback));
}

bool ControlInput::ReadFlag(const char* name, bool fallback) {
  if (!Has(name)) return fallback;
  const auto flag = ReadBool(members_, name);
  if (!flag.has_value()) Refuse(name, Quote(name) + " must be true or false", {"true", "false"});
  return flag.value_or(fallback);
}

// A number in a query is a string of digits; in a body a string is refused.
std::int64_t ControlInput::ReadWhole(const char* name, std::int64_t least, std::int64_t most,
                                     std::int64_t fallback) {
  if (!Has(name)) return fallback;
  const auto number =
      isQuery_ ? ParseWhole(ReadText(members_, name).value_or("")) : ReadInteger(members_, name);
  if (number.has_value() && *number >= least && *number <= most) return *number;
  Refuse(name,
         Quote(name) + " must be an integer from " + std::to_string(least) + " to " + std::to_string(most));
  return fallback;
}

// 0 and 1 may be written without a fraction: the JSON reader returns these as integers.
double ControlInput::ReadFraction(const char* name, double fallback) {
  if (!Has(name)) return fallback;
  const Val value = members_.Get(name);
  double number = -1;
  if (value.GetType() == ValType::Number) number = value.AsNumber();
  if (value.GetType() == ValType::Integer) number = static_cast<double>(value.AsInteger());
  if (number >= 0 && number <= 1) return number;
  Refuse(name, Quote(name) + " must be a number from 0 to 1");
  return fallback;
}

std::string ControlInput::ReadChoice(const char* name, const std::vector<std::string>& allowed,
                                     std::string fallback) {
  if (!Has(name)) return fallback;
  const auto text = ReadText(members_, name);
  if (text.has_value() && std::find(allowed.begin(), allowed.end(), *text) != allowed.end()) return *text;
  Refuse(name, Quote(name) + " has another value than those that are allowed", allowed);
  return fallback;
}

std::optional<std::string> ControlInput::ReadStringOrNull(const char* name) {
  if (!Has(name) || members_.Get(name).IsNil()) return std::nullopt;
  auto text = ReadText(members_, name);
  if (!text.has_value()) Refuse(name, Quote(name) + " must be a string or null");
  return text;
}

std::optional<std::vector<std::string>> ControlInput::ReadStringsOrNull(const char* name) {
  if (!Has(name) || members_.Get(name).IsNil()) return std::nullopt;
  auto texts = ReadTexts(members_, name);
  if (!texts.has_value()) Refuse(name, Quote(name) + " must be an array of strings or null");
  return texts;
}

}  // namespace CryptStand

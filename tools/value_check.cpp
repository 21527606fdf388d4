// Checks of option values that the parser does not bring, or brings with messages that do not name the value.
#include "tools/value_check.h"

#include <CLI/Option.hpp>
#include <charconv>
#include <utility>

#include "tools/suggestion.h"

namespace CryptCli {

namespace {

std::string Join(const std::vector<std::string>& words) {
  std::string all;
  for (const std::string& word : words) all += (all.empty() ? "" : ", ") + word;
  return all;
}

}  // namespace

// The descriptions are empty because the help shows the values in its own words.
CLI::Validator OneOf(std::vector<std::string> words) {
  return {[words = std::move(words)](std::string& value) {
            for (const std::string& word : words) {
              if (value == word) return std::string();
            }
            return "\"" + value + "\" is none of " + Join(words) + Suggest(value, words);
          },
          ""};
}

CLI::Validator NumberFrom(unsigned low, unsigned high) {
  return {[low, high](std::string& value) {
            unsigned number = 0;
            const char* const end = value.data() + value.size();
            const auto [rest, error] = std::from_chars(value.data(), end, number);
            const bool isNumber = error == std::errc() && rest == end && !value.empty();
            if (isNumber && number >= low && number <= high) return std::string();
            return "\"" + value + "\" is no number from " + std::to_string(low) + " to " +
                   std::to_string(high);
          },
          ""};
}

CLI::Validator NotEmpty(const std::string& what) {
  return {[what](std::string& value) { return value.empty() ? what + " is empty" : std::string(); }, ""};
}

void RefuseEmptyValues(CLI::App& command) {
  for (CLI::Option* option : command.get_options()) {
    // A flag expects no value.
    if (option->get_items_expected_max() > 0) option->check(NotEmpty("the value"));
  }
}

}  // namespace CryptCli

// Explains a wrong command line. The parser only says what it expected first, such as a required option, even
// if the reason is that an option before it was misspelt; so the words that it could not use are looked at
// first.
#include "tools/usage.h"

#include <CLI/Option.hpp>
#include <algorithm>
#include <string_view>
#include <vector>

#include "tools/suggestion.h"

namespace CryptCli {

namespace {

// Ends the options of a command line.
constexpr std::string_view kMark = "--";
// The argument that gets the word that a command has no use for. The help does not show it.
constexpr const char* kSpare = "SPARE";

std::string Quote(std::string_view word) {
  return "\"" + std::string(word) + "\"";
}

std::string Unknown(const char* what, const std::string& word, const std::vector<std::string>& known) {
  return std::string("Unknown ") + what + " " + Quote(word) + Suggest(word, known);
}

const CLI::App* GetCommand(const CLI::App& app) {
  const std::vector<CLI::App*> parsed = app.get_subcommands();
  return parsed.empty() ? nullptr : parsed.front();
}

std::vector<std::string> GetCommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  return names;
}

std::vector<std::string> GetOptionNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    for (const std::string& name : option->get_snames()) names.push_back("-" + name);
  }
  return names;
}

// A value that follows "=" may be a secret.
std::string WithoutValue(const std::string& word) {
  return word.substr(0, word.find('='));
}

bool IsOption(const std::string& word) {
  return word.size() > 1 && word.front() == '-';
}

std::string GetSpareWord(const CLI::App& command) {
  const CLI::Option* const spare = command.get_option_no_throw(kSpare);
  return spare != nullptr && spare->count() > 0 ? spare->results().front() : std::string();
}

// The message for an option of the command that stands before its name; empty if there is none.
std::string DescribeMisplaced(const std::vector<std::string>& words, const CLI::App& command) {
  const std::vector<std::string> known = GetOptionNames(command);
  for (const std::string& word : words) {
    const std::string name = WithoutValue(word);
    if (std::find(known.begin(), known.end(), name) == known.end()) continue;
    return "Option " + Quote(name) + " belongs after the command: cryptcli " + command.get_name() + " " +
           name;
  }
  return {};
}

std::string DescribeUnused(const CLI::App& app, const CLI::App* command) {
  std::vector<std::string> words = command != nullptr ? command->remaining() : app.remaining();
  if (words.empty() && command != nullptr) {
    words = app.remaining();
    std::string misplaced = DescribeMisplaced(words, *command);
    if (!misplaced.empty()) return misplaced;
  }
  // The options of an unknown command are unknown too; only the command is the mistake.
  if (command == nullptr && !words.empty() && !IsOption(words.front()) && words.front() != kMark)
    return Unknown("command", words.front(), GetCommandNames(app));
  const auto mark = std::find(words.begin(), words.end(), kMark);
  const auto option = std::find_if(words.begin(), mark, IsOption);
  if (option != mark) {
    const std::string name = WithoutValue(*option);
    // Any letter is similar to any other.
    if (name.size() == 2) return Unknown("option", name, {});
    return Unknown("option", name, GetOptionNames(command != nullptr ? *command : app));
  }
  std::erase(words, kMark);
  const std::string spare = command != nullptr ? GetSpareWord(*command) : std::string();
  if (!spare.empty()) words.insert(words.begin(), spare);
  return words.empty() ? std::string() : "Unexpected argument " + Quote(words.front());
}

// Whether any command has an option of that name, without the dashes, that expects a value.
bool TakesValue(const CLI::App& app, const std::string& name) {
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    const CLI::Option* const option = command->get_option_no_throw("--" + name);
    if (option != nullptr && option->get_items_expected_max() > 0) return true;
  }
  return false;
}

}  // namespace

std::string DescribeMistake(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* const command = GetCommand(app);
  std::string unused = DescribeUnused(app, command);
  if (!unused.empty()) return unused;
  if (command == nullptr) return "Name a command: cryptcli --help lists them";
  return error.what();
}

// The parser gives all that follows "--" to the program instead of the command if no positional argument
// lacks a value. So there is one that always does: those before it take every word that they can.
void TakeWordsAfterMark(CLI::App& command) {
  const auto refuse = [](const std::string&) { return std::string("is not expected"); };
  command.add_option(kSpare)->check(refuse)->group("");
}

std::vector<std::string> GetArguments(const CLI::App& app, int argc, const char* const* argv) {
  std::vector<std::string> arguments;
  bool isBehindMark = false;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    isBehindMark = isBehindMark || word == kMark;
    const bool isLong = !isBehindMark && word.starts_with("--") && word.find('=') == word.size() - 1;
    if (isLong && TakesValue(app, word.substr(2, word.size() - 3))) {
      arguments.push_back(word.substr(0, word.size() - 1));
      arguments.emplace_back();
    } else {
      arguments.push_back(word);
    }
  }
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

bool HasMark(int argc, const char* const* argv) {
  return std::any_of(argv, argv + argc, [](std::string_view word) { return word == kMark; });
}

bool AsksForJSON(int argc, const char* const* argv) {
  return std::any_of(argv, argv + argc,
                     [](std::string_view word) { return word == "--json" || word == "--json-lines"; });
}

std::string GetCommandName(const CLI::App& app) {
  const CLI::App* const command = GetCommand(app);
  return command != nullptr ? command->get_name() : std::string();
}

}  // namespace CryptCli

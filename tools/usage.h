#pragma once

#include <CLI/App.hpp>
#include <CLI/Error.hpp>
#include <string>
#include <vector>

namespace CryptCli {

/// What is wrong with a command line that `app` could not parse, for the user. An unknown command, option or
/// argument is named, with the word that was probably meant.
std::string DescribeMistake(const CLI::App& app, const CLI::ParseError& error);

/// Lets "--" be followed by names that begin with a dash even where the command has as many words as it
/// needs. Call it for each command before parsing a command line that contains "--"; a word too many is a
/// mistake as without it.
void TakeWordsAfterMark(CLI::App& command);

/// The arguments for CLI::App::parse, which wants them in reverse order. For "--option=" the parser would
/// take the word behind it as the value; here it becomes the option and an empty value.
std::vector<std::string> GetArguments(const CLI::App& app, int argc, const char* const* argv);

/// Whether the command line contains "--".
bool HasMark(int argc, const char* const* argv);

/// Whether the command line asks for JSON. For one that could not be parsed; otherwise ask the parsed
/// options.
bool AsksForJSON(int argc, const char* const* argv);

/// The name of the command that the command line names; empty when there is none.
std::string GetCommandName(const CLI::App& app);

}  // namespace CryptCli

#pragma once

#include <CLI/App.hpp>
#include <CLI/Error.hpp>
#include <string>

namespace CryptCli {

/// What is wrong with a command line that `app` could not parse, for the user. An unknown command, option or
/// argument is named, with the word that was probably meant.
std::string DescribeMistake(const CLI::App& app, const CLI::ParseError& error);

/// Whether the command line asks for JSON. For one that could not be parsed; otherwise ask the parsed
/// options.
bool AsksForJSON(int argc, const char* const* argv);

/// The name of the command that the command line names; empty when there is none.
std::string GetCommandName(const CLI::App& app);

}  // namespace CryptCli

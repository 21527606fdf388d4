#pragma once

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>
#include <string>
#include <vector>

namespace CryptCli {

// Checks of option values, for CLI::Option::check. Each refuses with a message that quotes the value; the
// parser puts the name of the option before it.

/// One of a few words. The message lists them and suggests the one that was probably meant.
CLI::Validator OneOf(std::vector<std::string> words);

/// A decimal number without a sign from `low` to `high`.
CLI::Validator NumberFrom(unsigned low, unsigned high);

/// Anything but an empty string, which is most often a variable of a script that was not set. `what` names
/// it.
CLI::Validator NotEmpty(const std::string& what);

/// Lets the command refuse an empty value of any option or argument. Elsewhere an empty value then means that
/// nothing was given. Call it once the command has all its options.
void RefuseEmptyValues(CLI::App& command);

}  // namespace CryptCli

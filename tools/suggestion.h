#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace CryptCli {

/// How many single characters have to be inserted, removed or replaced, or neighbours exchanged, to make one
/// word the other.
std::size_t EditDistance(std::string_view a, std::string_view b);

/// The word among `known` that the user probably meant, whatever the case of its letters; empty when none is
/// similar.
std::string FindSimilar(std::string_view word, const std::vector<std::string>& known);

/// The end of a message about a wrong word: "; did you mean "WORD"?", or nothing when no word is similar.
std::string Suggest(std::string_view word, const std::vector<std::string>& known);

}  // namespace CryptCli

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace CryptCli {

/// How many single characters have to be inserted, removed or replaced, or neighbours exchanged, to make one
/// word the other.
std::size_t EditDistance(std::string_view a, std::string_view b);

/// The word among `known` that the user probably meant; empty when none is similar.
std::string FindSimilar(std::string_view word, const std::vector<std::string>& known);

}  // namespace CryptCli

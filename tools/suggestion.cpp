// Finds the word that somebody meant who misspelt a command, an option, a value or an argument of an
// operation. Called wherever the command refuses a word: usage.cpp, value_check.cpp, operations.cpp,
// configuration.cpp.
#include "tools/suggestion.h"

#include <algorithm>
#include <utility>

namespace CryptCli {

// The distance of Damerau and Levenshtein in its restricted form, which edits no part of a word twice. Three
// rows of the table are enough, since an exchange looks two rows back.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool isExchange = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (isExchange) row[j] = std::min(row[j], before[j - 2] + 1);
    }
    before.swap(last);
    last.swap(row);
  }
  return last[b.size()];
}

namespace {

std::string ToLower(std::string_view word) {
  std::string lower(word);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

// Without the hyphens of an option.
char FirstLetter(std::string_view word) {
  const std::size_t at = word.find_first_not_of('-');
  return at == std::string_view::npos ? '\0' : word[at];
}

}  // namespace

// People misspell the middle of a word rather than its beginning. So of two words at the same distance the
// one with the same first letter was meant.
std::string FindSimilar(std::string_view word, const std::vector<std::string>& known) {
  const std::string wanted = ToLower(word);
  // A third of the letters may be wrong; more would suggest words that have nothing in common with it.
  const std::size_t limit = std::max<std::size_t>(1, word.size() / 3);
  std::pair<std::size_t, bool> least{limit + 1, false};
  std::string similar;
  for (const std::string& candidate : known) {
    const std::string other = ToLower(candidate);
    // The beginning of a word counts as one mistake: "--require" for "--require-verified".
    const bool isBeginning = wanted.size() >= 4 && other.starts_with(wanted);
    const std::size_t distance = isBeginning ? 1 : EditDistance(wanted, other);
    const std::pair<std::size_t, bool> rank{distance, FirstLetter(wanted) != FirstLetter(other)};
    if (rank >= least) continue;
    least = rank;
    similar = candidate;
  }
  return similar;
}

std::string Suggest(std::string_view word, const std::vector<std::string>& known) {
  const std::string similar = FindSimilar(word, known);
  return similar.empty() ? similar : "; did you mean \"" + similar + "\"?";
}

}  // namespace CryptCli

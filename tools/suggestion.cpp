#include "tools/suggestion.h"

#include <algorithm>

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

std::string FindSimilar(std::string_view word, const std::vector<std::string>& known) {
  // A third of the letters may be wrong; more would suggest words that have nothing in common with it.
  std::size_t least = std::max<std::size_t>(1, word.size() / 3) + 1;
  std::string similar;
  for (const std::string& candidate : known) {
    // The beginning of a word counts as one mistake: "--require" for "--require-verified".
    const bool isBeginning = word.size() >= 4 && candidate.starts_with(word);
    const std::size_t distance = isBeginning ? 1 : EditDistance(word, candidate);
    if (distance >= least) continue;
    least = distance;
    similar = candidate;
  }
  return similar;
}

}  // namespace CryptCli

#include "foundation/repeated_keys.h"

#include <algorithm>
#include <numeric>

namespace OruGuiBase {

namespace {

// Up to this count, comparing each key with those before it is faster than sorting.
constexpr std::uint32_t kFewKeys = 16;

// The common case: an object has a few distinct keys, and no memory is needed to see it.
bool AreDistinct(const AnsiStr* keys, std::uint32_t count) {
  for (const AnsiStr* key = keys; key != keys + count; ++key) {
    if (std::find(keys, key, *key) != key) return false;
  }
  return true;
}

// The places of the keys in the order of the keys. Equal keys are neighbours, in the order of their places.
std::vector<std::uint32_t> Sort(const AnsiStr* keys, std::uint32_t count) {
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0U);
  std::sort(order.begin(), order.end(), [keys](std::uint32_t a, std::uint32_t b) {
    const int compared = keys[a].View().compare(keys[b].View());
    return compared < 0 || (compared == 0 && a < b);
  });
  return order;
}

}  // namespace

// Sorting and not hashing: no choice of keys makes it slower than n log n.
std::vector<std::uint32_t> FindLastPlaces(const AnsiStr* keys, std::uint32_t count) {
  if (count <= kFewKeys && AreDistinct(keys, count)) return {};
  const std::vector<std::uint32_t> order = Sort(keys, count);
  const auto isSame = [keys](std::uint32_t a, std::uint32_t b) { return keys[a] == keys[b]; };
  if (std::adjacent_find(order.begin(), order.end(), isSame) == order.end()) return {};
  std::vector<std::uint32_t> last(count, kRepeated);
  std::uint32_t first = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (i == 0 || !isSame(order[i - 1], order[i])) first = order[i];
    last[first] = order[i];
  }
  return last;
}

}  // namespace OruGuiBase

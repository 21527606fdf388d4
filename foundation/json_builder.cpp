#include "foundation/json_builder.h"

#include <algorithm>
#include <string_view>
#include <unistd.h>
#include <unordered_map>
#include <utility>

#include "foundation/clock.h"

namespace OruGuiBase {

namespace {

// Up to here it is quicker to compare each key with those before it.
constexpr std::size_t kFewKeys = 16;

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t kPrime = (std::uint64_t{1} << 61) - 1;

std::uint64_t Reduce(Wide value) {
  const std::uint64_t sum =
      static_cast<std::uint64_t>(value & kPrime) + static_cast<std::uint64_t>(value >> 61);
  return sum >= kPrime ? sum - kPrime : sum;
}

std::uint64_t RandomPoint() {
  std::uint64_t random = 0;
  if (getentropy(&random, sizeof random) != 0) random = GetPseudoRandomNumberEx(0, kPrime);
  return random % (kPrime / 2) + kPrime / 2;
}

// The key's bytes as a polynomial modulo 2^61 - 1 at a point that is random in each process: a server cannot
// choose keys that collide, so that the time stays linear whatever it sends.
struct KeyHash {
  std::size_t operator()(std::string_view key) const {
    static const std::uint64_t point = RandomPoint();
    constexpr std::size_t kPiece = 7;
    std::uint64_t hash = key.size();
    for (std::size_t i = 0; i < key.size(); i += kPiece) {
      std::uint64_t piece = 0;
      for (const char c : key.substr(i, kPiece)) piece = piece << 8 | static_cast<unsigned char>(c);
      hash = Reduce(Wide{hash} * point + piece);
    }
    return hash;
  }
};

// Finds the place of the first key that is equal to a later one.
class FirstPlaces {
 public:
  FirstPlaces(const AnsiStr* keys, std::size_t count) : keys_(keys), hashed_(count > kFewKeys) {
    if (hashed_) places_.reserve(count);
  }
  // `place` itself when the key was not met among the `place` kept ones before it.
  std::size_t Find(const AnsiStr& key, std::size_t place) {
    if (hashed_) return places_.try_emplace(key.View(), place).first->second;
    return static_cast<std::size_t>(std::find(keys_, keys_ + place, key) - keys_);
  }

 private:
  const AnsiStr* keys_;
  bool hashed_;
  std::unordered_map<std::string_view, std::size_t, KeyHash> places_;
};

template <class T>
Array<T> TakeArray(std::vector<T>& stack, std::size_t first) {
  Array<T> array;
  array.Reserve(static_cast<std::uint32_t>(stack.size() - first));
  for (std::size_t i = first; i < stack.size(); ++i) array.Append(std::move(stack[i]));
  stack.resize(first);
  return array;
}

}  // namespace

void JSONBuilder::EndArray() {
  const Container container = open_.back();
  Close(container, Val(TakeArray(values_, container.value)));
}

void JSONBuilder::EndMap() {
  const Container container = open_.back();
  MergeRepeatedKeys(container);
  const Array<AnsiStr> keys = TakeArray(keys_, container.key);
  Close(container, Val(KVMap::FromDistinct(keys, TakeArray(values_, container.value))));
}

// A repeated key gives its value to the first place of that key and disappears.
void JSONBuilder::MergeRepeatedKeys(const Container& map) {
  AnsiStr* const keys = keys_.data() + map.key;
  Val* const values = values_.data() + map.value;
  const std::size_t count = keys_.size() - map.key;
  FirstPlaces places(keys, count);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t place = places.Find(keys[i], kept);
    values[place] = std::move(values[i]);
    if (place != kept) continue;
    // Moving keeps the text where it is, and with it the views of it.
    if (i != kept) keys[kept] = std::move(keys[i]);
    ++kept;
  }
  keys_.resize(map.key + kept);
  values_.resize(map.value + kept);
}

void JSONBuilder::Close(const Container& container, Val result) {
  values_.resize(container.value);
  open_.pop_back();
  values_.push_back(std::move(result));
}

Val JSONBuilder::TakeResult() {
  return values_.empty() ? Val() : std::move(values_.back());
}

}  // namespace OruGuiBase

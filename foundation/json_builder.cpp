// Builds the value of a JSON document for JSON2Val. Recursion-free: the containers that are open are on a
// stack, so that depth costs no stack of the thread.

#include "foundation/json_builder.h"

#include <utility>

#include "foundation/repeated_keys.h"

namespace OruGuiBase {

namespace {

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

// Gives the last value of a repeated key to its first place and removes its other places.
void JSONBuilder::MergeRepeatedKeys(const Container& map) {
  AnsiStr* const keys = keys_.data() + map.key;
  Val* const values = values_.data() + map.value;
  const auto count = static_cast<std::uint32_t>(keys_.size() - map.key);
  // Empty for an object without repeated keys, which is nearly every one.
  const std::vector<std::uint32_t> last = FindLastPlaces(keys, count);
  if (last.empty()) return;
  std::size_t kept = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (last[i] == kRepeated) continue;
    // last[i] >= i, so its value was not moved yet.
    values[kept] = std::move(values[last[i]]);
    if (i != kept) keys[kept] = std::move(keys[i]);
    ++kept;
  }
  keys_.resize(map.key + kept);
  values_.resize(map.value + kept);
}

// Replaces what the container had on the stack by the container itself, which is a value of the one around
// it.
void JSONBuilder::Close(const Container& container, Val result) {
  values_.resize(container.value);
  open_.pop_back();
  values_.push_back(std::move(result));
}

Val JSONBuilder::TakeResult() {
  return values_.empty() ? Val() : std::move(values_.back());
}

}  // namespace OruGuiBase

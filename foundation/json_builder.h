#pragma once

#include <cstdint>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace OruGuiBase {

/// Builds a Val from the parser's events, in time linear in their number except for the sorting of keys.
/// Lives on the stack of one JSON2Val and owns the values until TakeResult().
///
/// Keys and values of all open containers are on two stacks. A container that ends takes its own off them at
/// once, so that its arrays are allocated once, in their final size. Throws std::bad_alloc.
class JSONBuilder {
 public:
  // Enough for most responses, so that the stacks do not grow.
  JSONBuilder() {
    open_.reserve(8);
    keys_.reserve(32);
    values_.reserve(32);
  }
  void BeginArray() { open_.push_back({values_.size(), keys_.size()}); }
  void EndArray();
  void BeginMap() { open_.push_back({values_.size(), keys_.size()}); }
  void EndMap();
  void AddKey(AnsiStr key) { keys_.push_back(std::move(key)); }
  void Add(Val value) { values_.push_back(std::move(value)); }
  /// The value of the whole document, after the last event.
  Val TakeResult();

 private:
  // Where the values and keys of an open container begin on the stacks.
  struct Container {
    std::size_t value;
    std::size_t key;
  };

  void MergeRepeatedKeys(const Container& map);
  void Close(const Container& container, Val result);

  std::vector<Container> open_;
  std::vector<AnsiStr> keys_;
  std::vector<Val> values_;
};

}  // namespace OruGuiBase

#pragma once

#include <cstdint>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace OruGuiBase {

/// Builds a Val from the events of a JSON text, in time linear in their number but for the sorting of keys.
///
/// Keys and values of all open containers wait in two stacks. A container that ends takes its share off them
/// in one go, so that its arrays are made once, in their right size. Throws std::bad_alloc.
class JSONBuilder {
 public:
  // So that the stacks do not grow for most responses.
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
  /// The value of the whole text, after its last event.
  Val TakeResult();

 private:
  // Where the content of an open container begins.
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

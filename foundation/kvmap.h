#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/export.h"
#include "foundation/val.h"

namespace OruGuiBase {

/// The shared object of a KVMap. Handles count it; the last one frees it.
class KVMapImp {
 public:
  static constexpr std::uint32_t kBuckets = 13;

  Reference::Count refCount{1};
  Array<std::uint32_t> buckets[kBuckets];  ///< Indexes into `keys`, in order of insertion.
  Array<AnsiStr> keys;                     ///< In order of first insertion; a key never moves.
  Array<Val> values;                       ///< values[i] belongs to keys[i].
};

/// A shared, counted map from strings to Val that keeps the order of insertion. Copying shares; changing
/// copies first if the object is shared. Keys compare byte by byte. Nothing is ever removed.
///
/// A range-based for visits the members in order of insertion: `for (const auto& [key, value] : map)`.
class ORUGUI_EXPORT KVMap {
 public:
  /// A key with its value, as iteration yields them: two references into the map.
  struct Member {
    const AnsiStr& key;
    const Val& value;
  };

  /// Visits the members in order of insertion. It and the members that it yields are valid until this KVMap
  /// is changed, assigned to or destroyed; changing a copy of the KVMap does not matter, as that copies the
  /// content first.
  class Iterator {
   public:
    Member operator*() const noexcept { return {*key_, *value_}; }
    Iterator& operator++() noexcept {
      ++key_;
      ++value_;
      return *this;
    }
    bool operator==(const Iterator&) const noexcept = default;

   private:
    friend class KVMap;
    Iterator(const AnsiStr* key, const Val* value) noexcept : key_(key), value_(value) {}

    const AnsiStr* key_;
    const Val* value_;
  };

  KVMap() noexcept = default;
  KVMap(const KVMap& other) noexcept : imp_(other.imp_) {
    if (imp_ != nullptr) Reference::Link(imp_->refCount);
  }
  KVMap(KVMap&& other) noexcept : imp_(other.imp_) { other.imp_ = nullptr; }
  ~KVMap() { Drop(imp_); }
  KVMap& operator=(const KVMap& other) noexcept;
  KVMap& operator=(KVMap&& other) noexcept;

  std::uint32_t GetCount() const noexcept { return imp_ != nullptr ? imp_->keys.GetCount() : 0; }
  bool IsEmpty() const noexcept { return GetCount() == 0; }
  Iterator begin() const noexcept { return {GetKeys().begin(), GetValues().begin()}; }
  Iterator end() const noexcept { return {GetKeys().end(), GetValues().end()}; }

  /// Whether the map has the key, be its value nil or not.
  bool Contains(std::string_view key) const noexcept { return Find(key) < GetCount(); }
  bool Contains(const AnsiStr& key) const noexcept { return Contains(key.View()); }
  bool Contains(const char* key) const noexcept { return Contains(std::string_view(key)); }
  /// Index of a key, or GetCount() if the map does not have it.
  std::uint32_t Find(std::string_view key) const noexcept;
  std::uint32_t Find(const AnsiStr& key) const noexcept { return Find(key.View()); }
  std::uint32_t Find(const char* key) const noexcept { return Find(std::string_view(key)); }
  /// The value of a key, shared; nil if the map does not have it.
  Val Get(std::string_view key) const noexcept;
  Val Get(const AnsiStr& key) const noexcept { return Get(key.View()); }
  Val Get(const char* key) const noexcept { return Get(std::string_view(key)); }
  /// Adds a key at the end or replaces its value. False on allocation failure; the map is then as it was.
  bool Set(const AnsiStr& key, const Val& value) noexcept;
  /// The same for a string.
  bool Set(const AnsiStr& key, const AnsiStr& value) noexcept { return Set(key, Val(value)); }
  bool Set(const AnsiStr& key, const char* value) noexcept { return Set(key, Val(value)); }
  /// The same for a map that must be complete, such as a request: aborts on allocation failure (DebugAbort),
  /// as strings do.
  void Put(const AnsiStr& key, const Val& value) noexcept {
    if (!Set(key, value)) DebugAbort("Could not allocate map");
  }
  void Put(const AnsiStr& key, const AnsiStr& value) noexcept { Put(key, Val(value)); }
  void Put(const AnsiStr& key, const char* value) noexcept { Put(key, Val(value)); }

  /// Keys and values by index. A null map gives an empty array that lives as long as the process.
  static const Array<AnsiStr>& GetKeys(const KVMapImp* map) noexcept;
  static const Array<Val>& GetValues(const KVMapImp* map) noexcept;
  const Array<AnsiStr>& GetKeys() const noexcept { return GetKeys(imp_); }
  const Array<Val>& GetValues() const noexcept { return GetValues(imp_); }

  /// A map of `keys` with their `values`, in time linear in their number. Precondition: the keys are distinct
  /// and both arrays have the same count. The map shares the arrays.
  static KVMap FromDistinct(const Array<AnsiStr>& keys, const Array<Val>& values) noexcept;
  /// The same for keys that may repeat: a key keeps its first place and gets its last value, as with Set.
  /// Takes n log n of their number, where that many calls of Set would take n * n.
  static KVMap FromPairs(const Array<AnsiStr>& keys, const Array<Val>& values) noexcept;

  /// h = h * 31 + byte over the bytes, each taken as signed, from 0.
  static std::uint32_t Hash(std::string_view key) noexcept;

  KVMapImp* GetImp() const noexcept { return imp_; }
  /// A map that takes a further reference on `imp`, which may be null.
  static KVMap FromImp(KVMapImp* imp) noexcept;
  /// Gives one reference on `imp` back and frees the object with the last.
  static void Drop(KVMapImp* imp) noexcept;

 private:
  bool MakeUnique() noexcept;

  KVMapImp* imp_ = nullptr;
};

static_assert(sizeof(KVMap) == sizeof(void*));

}  // namespace OruGuiBase

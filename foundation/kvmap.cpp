// The map that JSON objects, HTTP headers and the arguments of operations are. Thirteen buckets are part of
// its fixed layout, so a lookup walks a thirteenth of the keys; FromDistinct and FromPairs build large maps
// without lookups.

#include "foundation/kvmap.h"

#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "foundation/repeated_keys.h"

namespace OruGuiBase {

static_assert(offsetof(KVMapImp, refCount) == 0 && offsetof(KVMapImp, buckets) == 8);
static_assert(offsetof(KVMapImp, keys) == 8 + KVMapImp::kBuckets * sizeof(void*));
static_assert(offsetof(KVMapImp, values) == offsetof(KVMapImp, keys) + sizeof(void*));

namespace {

// Null on allocation failure, which Set reports and the loaders turn into an abort.
KVMapImp* NewMap() {
  void* memory = AllocParticle(sizeof(KVMapImp));
  return memory != nullptr ? new (memory) KVMapImp : nullptr;
}

// Counts first, so that each bucket is allocated once, in its final size.
void FillBuckets(KVMapImp& map) {
  std::uint32_t counts[KVMapImp::kBuckets] = {};
  for (const AnsiStr& key : map.keys) ++counts[KVMap::Hash(key.View()) % KVMapImp::kBuckets];
  for (std::uint32_t i = 0; i < KVMapImp::kBuckets; ++i) map.buckets[i].Reserve(counts[i]);
  std::uint32_t index = 0;
  for (const AnsiStr& key : map.keys) {
    map.buckets[KVMap::Hash(key.View()) % KVMapImp::kBuckets].Append(index++);
  }
}

}  // namespace

KVMap& KVMap::operator=(const KVMap& other) noexcept {
  KVMap copy(other);
  std::swap(imp_, copy.imp_);
  return *this;
}

KVMap& KVMap::operator=(KVMap&& other) noexcept {
  if (this != &other) Drop(std::exchange(imp_, std::exchange(other.imp_, nullptr)));
  return *this;
}

// A bucket has indexes only; the keys themselves are compared, since different keys may have one hash.
std::uint32_t KVMap::Find(std::string_view key) const noexcept {
  if (imp_ == nullptr) return 0;
  const Array<AnsiStr>& keys = imp_->keys;
  for (const std::uint32_t index : imp_->buckets[Hash(key) % KVMapImp::kBuckets]) {
    if (keys[index].View() == key) return index;
  }
  return keys.GetCount();
}

Val KVMap::Get(std::string_view key) const noexcept {
  const std::uint32_t index = Find(key);
  return index < GetCount() ? std::as_const(imp_->values)[index] : Val();
}

bool KVMap::Set(const AnsiStr& key, const Val& value) noexcept {
  // Copied, because both may be in this map, whose arrays may move.
  AnsiStr ownKey(key);
  Val ownValue(value);
  if (!MakeUnique()) return false;
  const std::uint32_t index = Find(ownKey);
  if (!imp_->values.Prepare(index)) return false;
  if (index < GetCount()) {
    imp_->values.At(index) = std::move(ownValue);
    return true;
  }
  // All allocations come first, so that a key is added completely or not at all.
  Array<std::uint32_t>& bucket = imp_->buckets[Hash(ownKey.View()) % KVMapImp::kBuckets];
  if (!bucket.Prepare(bucket.GetCount()) || !imp_->keys.Prepare(index)) return false;
  bucket.Append(index);
  imp_->keys.Append(std::move(ownKey));
  imp_->values.Append(std::move(ownValue));
  return true;
}

const Array<AnsiStr>& KVMap::GetKeys(const KVMapImp* map) noexcept {
  static const Array<AnsiStr> empty{};
  return map != nullptr ? map->keys : empty;
}

const Array<Val>& KVMap::GetValues(const KVMapImp* map) noexcept {
  static const Array<Val> empty{};
  return map != nullptr ? map->values : empty;
}

KVMap KVMap::FromDistinct(const Array<AnsiStr>& keys, const Array<Val>& values) noexcept {
  KVMap map;
  if (keys.IsEmpty()) return map;
  map.imp_ = NewMap();
  if (map.imp_ == nullptr) DebugAbort("Could not allocate map");
  map.imp_->keys = keys;
  map.imp_->values = values;
  FillBuckets(*map.imp_);
  return map;
}

// Loaders of data from outside use it: many keys with one hash must not make a map slow to build.
KVMap KVMap::FromPairs(const Array<AnsiStr>& keys, const Array<Val>& values) noexcept {
  std::vector<std::uint32_t> last;
  try {
    last = FindLastPlaces(keys.begin(), keys.GetCount());
  } catch (const std::bad_alloc&) {
    DebugAbort("Could not allocate map");
  }
  if (last.empty()) return FromDistinct(keys, values);
  Array<AnsiStr> ownKeys;
  Array<Val> ownValues;
  for (std::uint32_t i = 0; i < keys.GetCount(); ++i) {
    if (last[i] == kRepeated) continue;
    ownKeys.Append(keys[i]);
    ownValues.Append(values[last[i]]);
  }
  return FromDistinct(ownKeys, ownValues);
}

// The published layout fixes this function and the number of buckets. It is no protection against chosen
// keys.
std::uint32_t KVMap::Hash(std::string_view key) noexcept {
  std::uint32_t hash = 0;
  for (const char character : key) {
    hash = hash * 31 + static_cast<std::uint32_t>(static_cast<signed char>(character));
  }
  return hash;
}

KVMap KVMap::FromImp(KVMapImp* imp) noexcept {
  KVMap map;
  if (imp != nullptr) Reference::Link(imp->refCount);
  map.imp_ = imp;
  return map;
}

// Destroys the fields: the arrays then release their own blocks and values.
void KVMap::Drop(KVMapImp* imp) noexcept {
  if (imp == nullptr || !Reference::Unlink(imp->refCount)) return;
  imp->~KVMapImp();
  FreeParticle(sizeof(KVMapImp), imp);
}

// The clone shares the arrays; each one is copied when it is changed.
bool KVMap::MakeUnique() noexcept {
  if (imp_ != nullptr && !Reference::IsShared(imp_->refCount)) return true;
  KVMapImp* const clone = NewMap();
  if (clone == nullptr) return false;
  if (imp_ != nullptr) {
    for (std::uint32_t i = 0; i < KVMapImp::kBuckets; ++i) clone->buckets[i] = imp_->buckets[i];
    clone->keys = imp_->keys;
    clone->values = imp_->values;
  }
  Drop(std::exchange(imp_, clone));
  return true;
}

}  // namespace OruGuiBase

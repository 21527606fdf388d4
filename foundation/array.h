#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "foundation/export.h"
#include "foundation/reference.h"

namespace OruGuiBase {

/// Traces that an array would have more elements than 32 bits can count. The caller aborts.
ORUGUI_EXPORT void ReportArrayOverflow(std::uint32_t count, std::uint32_t extra) noexcept;
/// Traces a failed array allocation. The caller aborts or returns false.
ORUGUI_EXPORT void ReportArrayAllocFail(std::uint32_t capacity, std::uint32_t count) noexcept;

/// A shared, counted array. Copying shares the block; changing copies it first if it is shared.
///
/// T must be a type whose T() is empty and cannot fail: a handle, a Val or a number. Every slot up to the
/// capacity is a constructed T, so that the spare slot of At() needs no bookkeeping. An array that cannot
/// grow aborts.
template <class T>
class Array {
 public:
  /// The shared block. The elements follow, aligned for T.
  struct Imp {
    Reference::Count refCount;
    std::uint32_t capacity;  ///< Never 0: the null handle stands for the empty array.
    std::uint32_t count;

    static constexpr std::size_t kHeader = (12 + alignof(T) - 1) / alignof(T) * alignof(T);
    T* Elements() noexcept { return reinterpret_cast<T*>(reinterpret_cast<char*>(this) + kHeader); }
    const T* Elements() const noexcept {
      return reinterpret_cast<const T*>(reinterpret_cast<const char*>(this) + kHeader);
    }
  };

  Array() noexcept = default;
  Array(const Array& other) noexcept : imp_(other.imp_) {
    if (imp_ != nullptr) Reference::Link(imp_->refCount);
  }
  Array(Array&& other) noexcept : imp_(other.imp_) { other.imp_ = nullptr; }
  ~Array() { Drop(imp_); }
  Array& operator=(const Array& other) noexcept {
    if (this != &other) {
      Array copy(other);
      std::swap(imp_, copy.imp_);
    }
    return *this;
  }
  Array& operator=(Array&& other) noexcept {
    if (this != &other) Drop(std::exchange(imp_, std::exchange(other.imp_, nullptr)));
    return *this;
  }

  std::uint32_t GetCount() const noexcept { return imp_ != nullptr ? imp_->count : 0; }
  bool IsEmpty() const noexcept { return GetCount() == 0; }

  /// The element for reading; an index past the end reads as an empty element.
  const T& operator[](std::uint32_t index) const noexcept {
    static const T kEmpty{};
    return index < GetCount() ? imp_->Elements()[index] : kEmpty;
  }

  /// The element for writing. An index past the end neither fails nor changes the count: it returns the slot
  /// after the last element, emptied.
  T& At(std::uint32_t index) noexcept {
    if (!Prepare(index)) DebugAbort("Could not allocate array");
    if (index < imp_->count) return imp_->Elements()[index];
    T& spare = imp_->Elements()[imp_->count];
    spare = T();
    return spare;
  }

  /// Makes the array unshared with a slot for At(index), so that At(index) need not allocate. On allocation
  /// failure false, with a trace; the array is then as it was.
  bool Prepare(std::uint32_t index) noexcept {
    const std::uint32_t count = GetCount();
    const bool isSpare = index >= count;
    if (isSpare && count == 0xFFFFFFFFU) {
      ReportArrayOverflow(count, 1);
      DebugAbort("UInt32 overflow");
    }
    const std::uint32_t needed = isSpare ? count + 1 : count;
    if (imp_ != nullptr && imp_->capacity >= needed && !Reference::IsShared(imp_->refCount)) return true;
    return Renew(isSpare ? GrownCapacity(needed) : imp_->capacity);
  }

  /// Adds an element at the end. A full block grows by 10 elements below 20, by half below 100000, and by
  /// 50000 from there on.
  void Append(T element) noexcept {
    At(GetCount()) = std::move(element);
    ++imp_->count;
  }

  /// Makes the array unshared with capacity for at least `capacity` elements, for callers that know the
  /// count.
  void Reserve(std::uint32_t capacity) noexcept {
    if (capacity != 0 &&
        (imp_ == nullptr || capacity > imp_->capacity || Reference::IsShared(imp_->refCount))) {
      if (!Renew(capacity > GetCount() ? capacity : GetCount())) DebugAbort("Could not allocate array");
    }
  }

  void Clear() noexcept { Drop(std::exchange(imp_, nullptr)); }

  const T* begin() const noexcept { return imp_ != nullptr ? imp_->Elements() : nullptr; }
  const T* end() const noexcept { return imp_ != nullptr ? imp_->Elements() + imp_->count : nullptr; }

  Imp* GetImp() const noexcept { return imp_; }
  /// An array that takes one more reference on `imp`, which may be null.
  static Array FromImp(Imp* imp) noexcept {
    Array array;
    if (imp != nullptr) Reference::Link(imp->refCount);
    array.imp_ = imp;
    return array;
  }
  /// Gives back one reference on `imp`, which may be null, and frees the block with the last one.
  static void Drop(Imp* imp) noexcept {
    if (imp == nullptr || !Reference::Unlink(imp->refCount)) return;
    const std::uint32_t capacity = imp->capacity;
    for (std::uint32_t i = 0; i < capacity; ++i) imp->Elements()[i].~T();
    imp->~Imp();
    FreeParticle(BlockSize(capacity), imp);
  }

 private:
  static std::size_t BlockSize(std::uint32_t capacity) noexcept {
    return Imp::kHeader + std::size_t{capacity} * sizeof(T);
  }

  static std::uint32_t GrownCapacity(std::uint32_t count) noexcept {
    const std::uint32_t extra = count < 20 ? 10 : count < 100000 ? count / 2 : 50000;
    return count > 0xFFFFFFFFU - extra ? 0xFFFFFFFFU : count + extra;
  }

  // Moves to a new block of the capacity. Elements of a shared block are copied, those of an unshared one
  // moved. False on allocation failure.
  bool Renew(std::uint32_t capacity) noexcept {
    void* memory = AllocParticle(BlockSize(capacity));
    if (memory == nullptr) {
      ReportArrayAllocFail(capacity, GetCount());
      return false;
    }
    Imp* block = new (memory) Imp{{1}, capacity, GetCount()};
    const bool shared = imp_ != nullptr && Reference::IsShared(imp_->refCount);
    for (std::uint32_t i = 0; i < capacity; ++i) {
      T* slot = block->Elements() + i;
      if (i >= block->count) {
        new (slot) T();
      } else if (shared) {
        new (slot) T(imp_->Elements()[i]);
      } else {
        new (slot) T(std::move(imp_->Elements()[i]));
      }
    }
    Drop(std::exchange(imp_, block));
    return true;
  }

  Imp* imp_ = nullptr;
};

}  // namespace OruGuiBase

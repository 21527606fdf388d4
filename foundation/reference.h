#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "foundation/export.h"

namespace OruGuiBase {

/// Returns a block of at least `size` bytes, aligned for any scalar, or null.
ORUGUI_EXPORT void* AllocParticle(std::size_t size) noexcept;

/// Frees a block of AllocParticle. `size` is the size passed there; null is allowed. errno stays as it is.
ORUGUI_EXPORT void FreeParticle(std::size_t size, void* block) noexcept;

/// Overwrites memory that had a secret. The compiler cannot optimise it away.
ORUGUI_EXPORT void WipeMemory(void* block, std::size_t size) noexcept;

/// Writes the message to standard error and aborts the process. For broken invariants, and for allocation
/// failures where no failure can be returned; never for bad input.
[[noreturn]] ORUGUI_EXPORT void DebugAbort(const char* format, ...) noexcept
    __attribute__((format(printf, 1, 2)));

/// The count at the head of every shared object. It starts at 1 and is changed only by atomic addition.
///
/// A count that shows a use after release aborts the process: no caller could continue safely.
class Reference {
 public:
  using Count = std::atomic<std::uint32_t>;

  /// Takes one more reference. Relaxed is enough: the caller has a reference already.
  static void Link(Count& count) noexcept {
    const std::uint32_t now = count.fetch_add(1, std::memory_order_relaxed) + 1;
    if (static_cast<std::int32_t>(now) <= 1) AbortLink(count, now);
  }

  /// Gives back one reference. True if it was the last; the caller then frees the object.
  [[nodiscard]] static bool Unlink(Count& count) noexcept {
    const std::uint32_t now = count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (static_cast<std::int32_t>(now) < 0) AbortUnlink(count, now);
    return now == 0;
  }

  /// Whether there is more than one reference, so that the object must be copied before it is changed.
  static bool IsShared(const Count& count) noexcept { return count.load(std::memory_order_acquire) >= 2; }

 private:
  [[noreturn]] ORUGUI_EXPORT static void AbortLink(const Count& count, std::uint32_t now) noexcept;
  [[noreturn]] ORUGUI_EXPORT static void AbortUnlink(const Count& count, std::uint32_t now) noexcept;
};

static_assert(sizeof(Reference::Count) == 4 && Reference::Count::is_always_lock_free);

}  // namespace OruGuiBase

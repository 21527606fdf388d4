#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "foundation/export.h"

namespace OruGuiBase {

/// Returns a block of at least `size` bytes, aligned for any scalar, or null.
ORUGUI_EXPORT void* AllocParticle(std::size_t size) noexcept;

/// Frees a block of AllocParticle. `size` is the size that was asked for; null is allowed.
ORUGUI_EXPORT void FreeParticle(std::size_t size, void* block) noexcept;

/// Overwrites memory that held a secret, in a way that the compiler may not leave out.
ORUGUI_EXPORT void WipeMemory(void* block, std::size_t size) noexcept;

/// Writes the message to standard error and ends the process. For broken invariants and memory that cannot be
/// had where no failure can be reported; never for bad input.
[[noreturn]] ORUGUI_EXPORT void DebugAbort(const char* format, ...) noexcept
    __attribute__((format(printf, 1, 2)));

/// The count at the head of every shared object. It starts at 1 and changes by atomic additions alone.
///
/// A count that shows a use after release ends the process: no caller could go on from there.
class Reference {
 public:
  using Count = std::atomic<std::uint32_t>;

  /// Takes one more reference. The new one orders nothing: whoever links already holds one.
  static void Link(Count& count) noexcept {
    const std::uint32_t now = count.fetch_add(1, std::memory_order_relaxed) + 1;
    if (static_cast<std::int32_t>(now) <= 1) AbortLink(count, now);
  }

  /// Gives one reference back. True when it was the last and the object is to be freed.
  [[nodiscard]] static bool Unlink(Count& count) noexcept {
    const std::uint32_t now = count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (static_cast<std::int32_t>(now) < 0) AbortUnlink(count, now);
    return now == 0;
  }

  /// True when an object may not be changed in place.
  static bool IsShared(const Count& count) noexcept { return count.load(std::memory_order_acquire) >= 2; }

 private:
  [[noreturn]] ORUGUI_EXPORT static void AbortLink(const Count& count, std::uint32_t now) noexcept;
  [[noreturn]] ORUGUI_EXPORT static void AbortUnlink(const Count& count, std::uint32_t now) noexcept;
};

static_assert(sizeof(Reference::Count) == 4 && Reference::Count::is_always_lock_free);

}  // namespace OruGuiBase

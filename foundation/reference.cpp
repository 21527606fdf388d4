// Memory and its end: every shared object is allocated, counted and freed through here.

#include "foundation/reference.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace OruGuiBase {

void* AllocParticle(std::size_t size) noexcept {
  return std::malloc(size);
}

// free() keeps errno since glibc 2.33, so callers may free between a failure and reading its reason.
void FreeParticle([[maybe_unused]] std::size_t size, void* block) noexcept {
  std::free(block);
}

// explicit_bzero, because a compiler removes memset before free.
void WipeMemory(void* block, std::size_t size) noexcept {
  if (size != 0) explicit_bzero(block, size);
}

// Must not allocate, because it also runs on allocation failure.
void DebugAbort(const char* format, ...) noexcept {
  char message[1024];
  std::va_list list;
  va_start(list, format);
  const int written = std::vsnprintf(message, sizeof message - 1, format, list);
  va_end(list);
  std::size_t length = written < 0 ? 0 : std::strlen(message);
  message[length++] = '\n';
  // If standard error cannot be written, there is nowhere else to report it.
  // write() and not stdio, which may allocate or wait for a lock.
  [[maybe_unused]] const auto ignored = ::write(STDERR_FILENO, message, length);
  std::abort();
}

void Reference::AbortLink(const Count& count, std::uint32_t now) noexcept {
  DebugAbort("Reference::Link: %p: Invalid reference count (%d)", static_cast<const void*>(&count),
             static_cast<std::int32_t>(now));
}

void Reference::AbortUnlink(const Count& count, std::uint32_t now) noexcept {
  DebugAbort("Reference::Unlink: %p: Invalid reference count (%d)", static_cast<const void*>(&count),
             static_cast<std::int32_t>(now));
}

}  // namespace OruGuiBase

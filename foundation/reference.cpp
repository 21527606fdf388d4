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

void FreeParticle([[maybe_unused]] std::size_t size, void* block) noexcept {
  std::free(block);
}

void WipeMemory(void* block, std::size_t size) noexcept {
  if (size != 0) explicit_bzero(block, size);
}

// Nothing here may allocate: memory may be what has run out.
void DebugAbort(const char* format, ...) noexcept {
  char message[1024];
  std::va_list list;
  va_start(list, format);
  const int written = std::vsnprintf(message, sizeof message - 1, format, list);
  va_end(list);
  std::size_t length = written < 0 ? 0 : std::strlen(message);
  message[length++] = '\n';
  // Nobody is left to be told when standard error cannot be written.
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

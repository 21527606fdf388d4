#include "tests/tampering/memory_meter.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <malloc.h>

namespace {

std::atomic<std::size_t> held{0};
std::atomic<std::size_t> most{0};

void Take(std::size_t size) {
  const std::size_t now = held.fetch_add(size, std::memory_order_relaxed) + size;
  std::size_t known = most.load(std::memory_order_relaxed);
  while (known < now && !most.compare_exchange_weak(known, now, std::memory_order_relaxed)) {
  }
}

void Give(std::size_t size) {
  held.fetch_sub(size, std::memory_order_relaxed);
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HEAP_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HEAP_IS_SANITIZED 1
#endif
#endif

#ifdef HEAP_IS_SANITIZED

// The heap is the sanitizer's own, which reports each block that it allocates and frees.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*taken)(const volatile void*, std::size_t),
                                              void (*given)(const volatile void*));
std::size_t __sanitizer_get_allocated_size(const volatile void* block);
}

namespace {

void OnTaken(const volatile void* block, std::size_t size) {
  if (block != nullptr) Take(size);
}

void OnGiven(const volatile void* block) {
  if (block != nullptr) Give(__sanitizer_get_allocated_size(block));
}

void InstallHooks() {
  static const bool installed = __sanitizer_install_malloc_and_free_hooks(OnTaken, OnGiven) != 0;
  if (!installed) std::abort();
}

}  // namespace

#else

// The functions of the heap, defined by this program, serve all its libraries.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

#define HEAP_FUNCTION __attribute__((visibility("default"), used))

namespace {

void* Counted(void* block) {
  if (block != nullptr) Take(malloc_usable_size(block));
  return block;
}

void InstallHooks() {}

}  // namespace

extern "C" {

HEAP_FUNCTION void* malloc(std::size_t size) noexcept {
  return Counted(__libc_malloc(size));
}

HEAP_FUNCTION void* calloc(std::size_t count, std::size_t size) noexcept {
  return Counted(__libc_calloc(count, size));
}

HEAP_FUNCTION void* realloc(void* block, std::size_t size) noexcept {
  const std::size_t old = block == nullptr ? 0 : malloc_usable_size(block);
  void* const moved = __libc_realloc(block, size);
  if (moved != nullptr || size == 0) Give(old);
  return Counted(moved);
}

HEAP_FUNCTION void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return Counted(__libc_memalign(alignment, size));
}

HEAP_FUNCTION void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return Counted(__libc_memalign(alignment, size));
}

HEAP_FUNCTION int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  *block = Counted(__libc_memalign(alignment, size));
  return *block == nullptr ? ENOMEM : 0;
}

HEAP_FUNCTION void free(void* block) noexcept {
  if (block != nullptr) Give(malloc_usable_size(block));
  __libc_free(block);
}
}

#endif

namespace TestSupport {

MemoryMeter::MemoryMeter() : before_(0) {
  InstallHooks();
  before_ = held.load(std::memory_order_relaxed);
  most.store(before_, std::memory_order_relaxed);
}

std::size_t MemoryMeter::GetPeak() const {
  return most.load(std::memory_order_relaxed) - before_;
}

}  // namespace TestSupport

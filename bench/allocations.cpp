// Counts the allocations of each thread for operation_bench: their number depends on nothing but the code,
// where times depend on the machine.
#include "bench/allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;

}  // namespace

namespace Bench {

std::uint64_t OwnAllocations() {
  return allocations;
}

}  // namespace Bench

// With --wrap the linker sends calls of malloc to __wrap_malloc, and __real_malloc is the original.
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) {
  ++allocations;
  return __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __real_calloc(count, size);
}

void* __wrap_realloc(void* block, std::size_t size) {
  ++allocations;
  return __real_realloc(block, size);
}

}  // extern "C"

void* operator new(std::size_t size) {
  void* const block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

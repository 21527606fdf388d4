#include <cstdlib>
#include <new>

// Frees objects with free() from here, where the linker wraps it so that a test sees each block. Blocks that
// the standard library frees itself are not seen.
void* operator new(std::size_t size) {
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}

#include <cstdlib>
#include <new>

// Objects are freed with free() in this object, where the linker lets freed blocks be looked at: what the
// standard library frees by itself is not seen.
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

#include "tests/faults/allocations.h"

#include <array>
#include <cstdlib>
#include <new>
#include <openssl/crypto.h>

// The linker sends each call from the program's own objects here.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void __wrap_free(void* block);
}

namespace FaultTest {
namespace {

bool watching = false;
std::uint64_t counts[2] = {};
Asker failingAsker = Asker::Own;
std::uint64_t failingNumber = 0;

// The addresses of live blocks, in a table with open addressing, which allocates nothing. A removed entry
// leaves a mark.
constexpr std::size_t kSlots = 1U << 16;
std::array<void*, kSlots> blocks{};
std::uint64_t live = 0;
char removedMark;

std::size_t SlotOf(const void* block) {
  return (reinterpret_cast<std::uintptr_t>(block) >> 4) * 0x9E3779B97F4A7C15U >> 48;
}

void Note(void* block) {
  std::size_t slot = SlotOf(block);
  while (blocks[slot] != nullptr && blocks[slot] != &removedMark) slot = (slot + 1) % kSlots;
  blocks[slot] = block;
  ++live;
}

void Forget(void* block) {
  for (std::size_t slot = SlotOf(block); blocks[slot] != nullptr; slot = (slot + 1) % kSlots) {
    if (blocks[slot] != block) continue;
    blocks[slot] = &removedMark;
    --live;
    return;
  }
}

bool IsToFail(Asker asker) {
  if (!watching) return false;
  const std::uint64_t number = ++counts[static_cast<std::size_t>(asker)];
  return asker == failingAsker && number == failingNumber;
}

void* Allocate(Asker asker, std::size_t size) {
  if (IsToFail(asker)) return nullptr;
  void* const block = __real_malloc(size);
  if (watching && block != nullptr) Note(block);
  return block;
}

void Release(void* block) {
  if (block != nullptr && live > 0) Forget(block);
  __real_free(block);
}

void* Reallocate(Asker asker, void* block, std::size_t size) {
  if (IsToFail(asker)) return nullptr;
  if (block != nullptr && live > 0) Forget(block);
  void* const moved = __real_realloc(block, size);
  if (watching && moved != nullptr) Note(moved);
  return moved;
}

void* AllocateForOpenSSL(std::size_t size, const char*, int) {
  return Allocate(Asker::OpenSSL, size);
}
void* ReallocateForOpenSSL(void* block, std::size_t size, const char*, int) {
  return Reallocate(Asker::OpenSSL, block, size);
}
void ReleaseForOpenSSL(void* block, const char*, int) {
  Release(block);
}

// OpenSSL takes its allocator only before its first block.
[[maybe_unused]] const bool isInstalled =
    CRYPTO_set_mem_functions(AllocateForOpenSSL, ReallocateForOpenSSL, ReleaseForOpenSSL) == 1;

}  // namespace

void WatchAllocations(Asker asker, std::uint64_t failing) {
  blocks.fill(nullptr);
  live = counts[0] = counts[1] = 0;
  failingAsker = asker;
  failingNumber = failing;
  watching = true;
}

void EndWatch() {
  watching = false;
}

std::uint64_t GetAllocations(Asker asker) {
  return counts[static_cast<std::size_t>(asker)];
}

std::uint64_t GetBlocksLeft() {
  return live;
}

static int unwatchedDepth = 0;
static bool wasWatching = false;

Unwatched::Unwatched() {
  if (unwatchedDepth++ == 0) wasWatching = watching;
  watching = false;
}

Unwatched::~Unwatched() {
  if (--unwatchedDepth == 0) watching = wasWatching;
}

}  // namespace FaultTest

void* __wrap_malloc(std::size_t size) {
  return FaultTest::Allocate(FaultTest::Asker::Own, size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (FaultTest::IsToFail(FaultTest::Asker::Own)) return nullptr;
  void* const block = __real_calloc(count, size);
  if (FaultTest::watching && block != nullptr) FaultTest::Note(block);
  return block;
}

void* __wrap_realloc(void* block, std::size_t size) {
  return FaultTest::Reallocate(FaultTest::Asker::Own, block, size);
}

void __wrap_free(void* block) {
  FaultTest::Release(block);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return FaultTest::Allocate(FaultTest::Asker::Own, size);
}

void* operator new(std::size_t size) {
  void* const block = FaultTest::Allocate(FaultTest::Asker::Own, size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void operator delete(void* block) noexcept {
  FaultTest::Release(block);
}
void operator delete[](void* block) noexcept {
  FaultTest::Release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  FaultTest::Release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  FaultTest::Release(block);
}

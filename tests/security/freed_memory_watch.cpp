// Replaces OpenSSL's allocator for the whole program, so that each block can be searched when it is freed.
#include "tests/security/freed_memory_watch.h"

#include <cstdlib>
#include <cstring>
#include <openssl/crypto.h>
#include <string_view>
#include <utility>

namespace SecurityTest {
namespace {

// Each block has its size in front of it, at a distance that keeps it aligned for any type.
constexpr std::size_t kHeader = 16;

std::vector<std::string>* watchedSecrets = nullptr;
unsigned freedBlocks = 0;
unsigned leakyBlocks = 0;

std::size_t SizeOf(const char* block) {
  std::size_t size = 0;
  std::memcpy(&size, block - kHeader, sizeof size);
  return size;
}

bool HoldsSecret(std::string_view block) {
  for (const std::string& secret : *watchedSecrets) {
    if (block.find(secret) != std::string_view::npos) return true;
  }
  return false;
}

void Inspect(const char* block) {
  if (watchedSecrets == nullptr) return;
  ++freedBlocks;
  if (HoldsSecret({block, SizeOf(block)})) ++leakyBlocks;
}

// Zeroed, so that no block has what a test left in the same memory before.
void* Allocate(std::size_t size, const char*, int) {
  char* memory = static_cast<char*>(std::calloc(1, size + kHeader));
  if (memory == nullptr) return nullptr;
  std::memcpy(memory, &size, sizeof size);
  return memory + kHeader;
}

void Free(void* block, const char*, int) {
  if (block == nullptr) return;
  Inspect(static_cast<char*>(block));
  std::free(static_cast<char*>(block) - kHeader);
}

void* Reallocate(void* block, std::size_t size, const char* file, int line) {
  void* const bigger = Allocate(size, file, line);
  if (block == nullptr || bigger == nullptr) return bigger;
  const std::size_t old = SizeOf(static_cast<char*>(block));
  std::memcpy(bigger, block, old < size ? old : size);
  Free(block, file, line);
  return bigger;
}

// OpenSSL takes its allocator only before its first block.
[[maybe_unused]] const bool isInstalled = CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

}  // namespace

FreedMemoryWatch::FreedMemoryWatch(std::vector<std::string> secrets) {
  freedBlocks = 0;
  leakyBlocks = 0;
  watchedSecrets = new std::vector<std::string>(std::move(secrets));
}

FreedMemoryWatch::~FreedMemoryWatch() {
  delete std::exchange(watchedSecrets, nullptr);
}

unsigned FreedMemoryWatch::GetFreed() const {
  return freedBlocks;
}

unsigned FreedMemoryWatch::GetLeaks() const {
  return leakyBlocks;
}

}  // namespace SecurityTest

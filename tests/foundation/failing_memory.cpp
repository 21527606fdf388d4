#include "tests/foundation/failing_memory.h"

#include <cstddef>

// The linker sends every call of malloc() in this program's own objects here.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);

namespace OruGuiBase {
namespace {

thread_local bool isLimited = false;
thread_local std::uint32_t blocksLeft = 0;

bool MayAllocate() {
  if (!isLimited) return true;
  if (blocksLeft == 0) return false;
  --blocksLeft;
  return true;
}

}  // namespace

FailingMemory::FailingMemory(std::uint32_t blocks) {
  blocksLeft = blocks;
  isLimited = true;
}

FailingMemory::~FailingMemory() {
  isLimited = false;
}

}  // namespace OruGuiBase

void* __wrap_malloc(std::size_t size) {
  return OruGuiBase::MayAllocate() ? __real_malloc(size) : nullptr;
}

#include "tests/support/freed_memory.h"

#include <atomic>
#include <malloc.h>

// The linker sends every call of free() in this program's own objects here.
extern "C" void __real_free(void* block);
extern "C" void __wrap_free(void* block);

namespace OruGuiBase {
namespace {

std::string_view wanted;
std::atomic<bool> watching{false};
int found = 0;
int watched = 0;

}  // namespace

void WatchFreedMemory(std::string_view text) {
  wanted = text;
  found = watched = 0;
  watching = true;
}

int StopWatching() {
  watching = false;
  return found;
}

int GetWatchedBlocks() {
  return watched;
}

static void LookThrough(void* block) {
  ++watched;
  const std::string_view content(static_cast<const char*>(block), malloc_usable_size(block));
  if (content.find(wanted) != std::string_view::npos) ++found;
}

}  // namespace OruGuiBase

void __wrap_free(void* block) {
  if (block != nullptr && OruGuiBase::watching) OruGuiBase::LookThrough(block);
  __real_free(block);
}

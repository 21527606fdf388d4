#include "tests/foundation/memory_limit.h"

#include <cstdio>
#include <sys/resource.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MEMORY_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define MEMORY_IS_SANITIZED 1
#endif
#endif

#ifdef MEMORY_IS_SANITIZED

// A sanitizer needs its address space, so that is not limited; its own allocator is.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=1024";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=1024";
}

void LimitMemory() {}

bool IsMemorySanitized() {
  return true;
}

#else

void LimitMemory() {
  unsigned long pages = 0;
  std::FILE* const file = std::fopen("/proc/self/statm", "r");
  if (file != nullptr) {
    if (std::fscanf(file, "%lu", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  constexpr rlim_t kSpare = 64 << 20;
  const rlim_t limit = pages * 4096 + kSpare;
  const rlimit both{limit, limit};
  setrlimit(RLIMIT_AS, &both);
}

bool IsMemorySanitized() {
  return false;
}

#endif

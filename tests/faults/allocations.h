#pragma once

#include <cstdint>

/// Every allocation of the program's own objects, of operator new and of OpenSSL comes by here, so that a
/// test can count them, let one fail, and see which were never given back.
namespace FaultTest {

/// Who asks for memory.
enum class Asker : std::uint8_t { Own, OpenSSL };

/// From here on the allocations of each asker count from 1, and the one of this number fails; 0 lets all
/// succeed.
void WatchAllocations(Asker asker, std::uint64_t failing);
void EndWatch();
/// The allocations of the last watch.
std::uint64_t GetAllocations(Asker asker);
/// How many blocks that were allocated under the last watch live on.
std::uint64_t GetBlocksLeft();

/// While it lives the watch sees nothing: what a test does itself neither counts nor fails.
class Unwatched {
 public:
  Unwatched();
  ~Unwatched();
  Unwatched(const Unwatched&) = delete;
  Unwatched& operator=(const Unwatched&) = delete;
};

}  // namespace FaultTest

#pragma once

#include <cstdint>

/// Every allocation of the program's own objects, of operator new and of OpenSSL goes through here, so that a
/// test can count them, make one fail, and see which were never freed.
namespace FaultTest {

/// Who asks for memory.
enum class Asker : std::uint8_t { Own, OpenSSL };

/// From here on the allocations of each asker are counted from 1, and the one with this number fails. With 0
/// all succeed.
void WatchAllocations(Asker asker, std::uint64_t failing);
void EndWatch();
/// The allocations of the last watch.
std::uint64_t GetAllocations(Asker asker);
/// How many blocks that were allocated under the last watch are not freed yet.
std::uint64_t GetBlocksLeft();

/// Pauses the watch while it lives: what the test itself does is not counted and does not fail.
class Unwatched {
 public:
  Unwatched();
  ~Unwatched();
  Unwatched(const Unwatched&) = delete;
  Unwatched& operator=(const Unwatched&) = delete;
};

}  // namespace FaultTest

#pragma once

#include <cstdint>

namespace Bench {

/// Allocations that this thread has made so far: malloc and its kin where our own code calls them, and
/// operator new anywhere. The program has to be linked with --wrap=malloc, --wrap=calloc and --wrap=realloc.
std::uint64_t OwnAllocations();

}  // namespace Bench

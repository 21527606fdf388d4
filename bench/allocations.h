#pragma once

#include <cstdint>

namespace Bench {

/// Number of allocations of this thread so far: malloc, calloc and realloc where our own code calls them, and
/// operator new everywhere. The program must be linked with --wrap=malloc, --wrap=calloc and --wrap=realloc.
std::uint64_t OwnAllocations();

}  // namespace Bench

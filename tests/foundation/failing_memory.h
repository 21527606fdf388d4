#pragma once

#include <cstdint>

namespace OruGuiBase {

/// While it lives, `blocks` allocations of the foundation succeed and all others fail. One at a time.
class FailingMemory {
 public:
  explicit FailingMemory(std::uint32_t blocks);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();
};

}  // namespace OruGuiBase

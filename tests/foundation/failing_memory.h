#pragma once

#include <cstdint>

namespace OruGuiBase {

/// While it lives, the foundation gets as many blocks as `blocks` says, and no further one. One at a time.
class FailingMemory {
 public:
  explicit FailingMemory(std::uint32_t blocks);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();
};

}  // namespace OruGuiBase

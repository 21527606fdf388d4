#pragma once

#include <cstddef>

namespace TestSupport {

/// How much memory the process takes from the heap, OpenSSL's share included, above what it held before.
class MemoryMeter {
 public:
  /// Begins to measure; one meter at a time.
  MemoryMeter();
  /// The most that was held at once since then, in bytes.
  std::size_t GetPeak() const;

 private:
  std::size_t before_;
};

}  // namespace TestSupport

#pragma once

#include <cstddef>

namespace TestSupport {

/// How much memory the process takes from the heap, OpenSSL's share included, above what it had before.
class MemoryMeter {
 public:
  /// Begins to measure; one meter at a time.
  MemoryMeter();
  /// The largest amount at any time since then, in bytes.
  std::size_t GetPeak() const;

 private:
  std::size_t before_;
};

}  // namespace TestSupport

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace CryptCli {

/// How far an operation has come. The thread that works writes it, the one that shows it reads it.
struct Progress {
  std::atomic<std::uint64_t> done{0};
  std::atomic<std::uint64_t> total{0};  ///< 0 as long as it is not known
};

/// One line for a terminal: label and elapsed time and, once they are known, percent, rate and remaining
/// time. The rate is that of all the time so far, so it does not jump.
std::string DescribeProgress(const std::string& label, std::chrono::milliseconds elapsed, std::uint64_t done,
                             std::uint64_t total);

}  // namespace CryptCli

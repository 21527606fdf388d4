#include "foundation/clock.h"

#include <chrono>
#include <exception>
#include <random>

namespace OruGuiBase {

namespace {

std::uint64_t Seed() {
  try {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
  } catch (const std::exception&) {
    // A system without a random device. The clock is good enough: the numbers only spread clients over key
    // servers.
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
}

}  // namespace

// Truncated to 32 bits: callers only use differences.
std::uint32_t GetClockTicks() noexcept {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::uint32_t GetClockTicks(std::uint32_t since) noexcept {
  return GetClockTicks() - since;
}

std::uint64_t GetPseudoRandomNumberEx(std::uint64_t low, std::uint64_t high) noexcept {
  if (low >= high) return low;
  // One for each thread: no lock, and no two threads draw the same numbers.
  thread_local std::mt19937_64 generator(Seed());
  return std::uniform_int_distribution<std::uint64_t>(low, high)(generator);
}

}  // namespace OruGuiBase

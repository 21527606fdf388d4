#include "tests/tampering/memory_meter.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <openssl/crypto.h>
#include <vector>

namespace TestSupport {
namespace {

constexpr std::size_t kMuch = 48 << 20;
constexpr std::size_t kSpare = 1 << 20;

TEST(MemoryMeter, SeesMemoryThatWasReleased) {
  const MemoryMeter meter;
  EXPECT_LT(meter.GetPeak(), kSpare);
  std::make_unique<std::vector<char>>(kMuch);
  EXPECT_GE(meter.GetPeak(), kMuch);
  EXPECT_LT(meter.GetPeak(), kMuch + kSpare);
}

TEST(MemoryMeter, SeesMemoryOfOpenSSL) {
  const MemoryMeter meter;
  OPENSSL_free(OPENSSL_malloc(kMuch));
  EXPECT_GE(meter.GetPeak(), kMuch);
}

TEST(MemoryMeter, SeesAnAllocationThatIsNeverTouched) {
  const MemoryMeter meter;
  void* const volatile block = std::malloc(kMuch);
  std::free(block);
  EXPECT_GE(meter.GetPeak(), kMuch);
}

TEST(MemoryMeter, CountsAGrownBlockOnce) {
  const MemoryMeter meter;
  void* block = std::malloc(kMuch / 8);
  for (std::size_t size = kMuch / 4; size <= kMuch; size += kMuch / 8) block = std::realloc(block, size);
  std::free(block);
  EXPECT_GE(meter.GetPeak(), kMuch);
  EXPECT_LT(meter.GetPeak(), 2 * kMuch + kSpare);
}

// Memory that the process has already is not counted, and what it releases leaves no debt.
TEST(MemoryMeter, StartsAgain) {
  auto before = std::make_unique<std::vector<char>>(kMuch);
  const MemoryMeter meter;
  EXPECT_LT(meter.GetPeak(), kSpare);
  before.reset();
  EXPECT_LT(meter.GetPeak(), kSpare);
}

}  // namespace
}  // namespace TestSupport

#include "tools/progress.h"

#include <gtest/gtest.h>

namespace CryptCli {
namespace {

using std::chrono::milliseconds;

TEST(DescribeProgress, ShowsTheElapsedTimeAsLongAsNothingIsKnown) {
  EXPECT_EQ(DescribeProgress("Encrypting", milliseconds(61'900), 0, 0), "Encrypting 1:01");
  EXPECT_EQ(DescribeProgress("Encrypting", milliseconds(500), 0, 1000), "Encrypting 0:00");
}

TEST(DescribeProgress, ShowsPercentRateAndRemainingTime) {
  EXPECT_EQ(DescribeProgress("Decrypting", milliseconds(10'000), 25 << 20, 100 << 20),
            "Decrypting 0:10, 25 %, 2.5 MiB/s, 0:30 left");
  EXPECT_EQ(DescribeProgress("Decrypting", milliseconds(4'000), 100, 100),
            "Decrypting 0:04, 100 %, 25.0 B/s, 0:00 left");
}

TEST(DescribeProgress, ShowsHoursOnceThereAreAny) {
  EXPECT_EQ(DescribeProgress("Encrypting", milliseconds(3'600'000), 1024, 2048 + 1024),
            "Encrypting 1:00:00, 33 %, 0.3 B/s, 2:00:00 left");
}

TEST(DescribeProgress, NeverPassesTheEnd) {
  EXPECT_EQ(DescribeProgress("Encrypting", milliseconds(1'000), 300, 200),
            "Encrypting 0:01, 100 %, 200.0 B/s, 0:00 left");
}

}  // namespace
}  // namespace CryptCli

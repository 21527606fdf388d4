// Formats the progress of an operation for the terminal. The thread of the watch (watch.cpp) shows it.
#include "tools/progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace CryptCli {

namespace {

std::string DescribeTime(std::uint64_t seconds) {
  char text[64];
  if (seconds < 3600) {
    std::snprintf(text, sizeof text, "%u:%02u", static_cast<unsigned>(seconds / 60),
                  static_cast<unsigned>(seconds % 60));
  } else {
    std::snprintf(text, sizeof text, "%llu:%02u:%02u", static_cast<unsigned long long>(seconds / 3600),
                  static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60));
  }
  return text;
}

std::string DescribeRate(double bytesPerSecond) {
  constexpr std::array kUnits = {"B/s", "KiB/s", "MiB/s", "GiB/s"};
  std::size_t unit = 0;
  while (bytesPerSecond >= 1024 && unit + 1 < kUnits.size()) {
    bytesPerSecond /= 1024;
    ++unit;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%.1f %s", bytesPerSecond, kUnits[unit]);
  return text;
}

}  // namespace

std::string DescribeProgress(const std::string& label, std::chrono::milliseconds elapsed, std::uint64_t done,
                             std::uint64_t total) {
  const auto milliseconds = static_cast<std::uint64_t>(std::max<std::int64_t>(elapsed.count(), 0));
  std::string line = label + " " + DescribeTime(milliseconds / 1000);
  if (total == 0 || done == 0 || milliseconds == 0) return line;
  // A file that grows while it is read would otherwise show more than 100 % and a negative time.
  done = std::min(done, total);
  const double share = static_cast<double>(done) / static_cast<double>(total);
  const double seconds = static_cast<double>(milliseconds) / 1000;
  const double remaining = seconds / share - seconds;
  line += ", " + std::to_string(static_cast<unsigned>(share * 100)) + " %";
  line += ", " + DescribeRate(static_cast<double>(done) / seconds);
  return line + ", " + DescribeTime(static_cast<std::uint64_t>(std::llround(remaining))) + " left";
}

}  // namespace CryptCli

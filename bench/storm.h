#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace Bench {

/// What the process of the stand and that of the clients know together.
struct Weather {
  /// Even while the stand has no fault, odd while it has; a new number with each change.
  std::atomic<std::uint64_t> season{0};
  std::atomic<std::uint64_t> faults{0};
};

/// A stand in a process of its own, so that the clients' memory and descriptors are theirs alone. It changes
/// by itself between calm, without any fault, and storm, with new random faults every half second.
class Storm {
 public:
  Storm() = default;
  Storm(const Storm&) = delete;
  Storm& operator=(const Storm&) = delete;
  /// Ends the process of the stand.
  ~Storm();

  /// Call before any thread is started. False when the stand cannot be brought up.
  bool Start(unsigned seed);
  const std::string& GetServiceUrl() const { return serviceUrl_; }
  const Weather& GetWeather() const { return *weather_; }

 private:
  pid_t process_ = -1;
  Weather* weather_ = nullptr;
  std::string serviceUrl_;
};

}  // namespace Bench

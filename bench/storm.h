#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace Bench {

/// Memory shared by the process of the servers and that of the clients.
struct Weather {
  /// Even while no fault is set, odd while faults are; a new number with each change.
  std::atomic<std::uint64_t> season{0};
  std::atomic<std::uint64_t> faults{0};
};

/// The servers in a process of their own, so that the clients' memory and descriptors can be measured. It
/// alternates between calm, without any fault, and storm, with new random faults every half second. Owns the
/// process.
class Storm {
 public:
  Storm() = default;
  Storm(const Storm&) = delete;
  Storm& operator=(const Storm&) = delete;
  /// Kills the process of the servers.
  ~Storm();

  /// It forks: call before any thread is started. False if the servers cannot be started.
  bool Start(unsigned seed);
  const std::string& GetServiceUrl() const { return serviceUrl_; }
  const Weather& GetWeather() const { return *weather_; }

 private:
  pid_t process_ = -1;
  Weather* weather_ = nullptr;
  std::string serviceUrl_;
};

}  // namespace Bench

#pragma once

namespace Bench {

/// What was done side by side within a fixed time.
struct Work {
  double operations = 0;
  double cpuSeconds = 0;
  long waits = 0;  ///< times that a thread gave its processor away, as it does at a lock that is taken
  bool ok = true;

  double CpuMicroseconds() const { return cpuSeconds / operations * 1e6; }
};

/// Removes keys on threads of this process, each with operations and a transport of its own.
Work WorkOnThreads(unsigned threads);
/// The same in processes, which share nothing: what the machine gives at best. No other thread may run
/// meanwhile.
Work WorkInProcesses(unsigned processes);

}  // namespace Bench

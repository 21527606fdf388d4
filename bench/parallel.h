#pragma once

namespace Bench {

/// What was done in parallel within a fixed time.
struct Work {
  double operations = 0;
  double cpuSeconds = 0;
  long waits = 0;  ///< voluntary context switches, as at a lock that another thread has
  bool ok = true;

  double CpuMicroseconds() const { return cpuSeconds / operations * 1e6; }
};

/// Deletes keys on threads of this process, each with operations and a transport of its own.
Work WorkOnThreads(unsigned threads);
/// The same in processes, which share nothing: the best that the machine can do. It forks, so no other thread
/// may be running.
Work WorkInProcesses(unsigned processes);

}  // namespace Bench

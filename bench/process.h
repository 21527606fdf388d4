#pragma once

#include <string>
#include <vector>

namespace Bench {

/// What a process has used up.
struct Usage {
  double cpuSeconds = 0;  ///< user and system
  double wallSeconds = 0;
  long peakKiB = 0;  ///< peak resident memory
  bool ok = false;
  std::string output;  ///< what it printed
};

/// Runs a command to its end; the first word is looked up in the path.
Usage RunProcess(const std::vector<std::string>& command);

/// The path of the program that runs.
std::string OwnProgram();
/// CPU seconds that this process has used so far.
double OwnCpuSeconds();
/// CPU seconds that the calling thread has used so far.
double ThreadCpuSeconds();
/// Peak resident memory of this process so far.
long OwnPeakKiB();

/// Touches and frees `bytes` of memory. On a virtual machine whose host takes free pages back, the first use
/// of a page is slow; this moves that cost out of what is measured next.
void WarmMemory(std::size_t bytes);

double Median(std::vector<double> values);

}  // namespace Bench

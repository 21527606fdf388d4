// Measures named operations without a network: CPU time and allocations of deleting a key, how the cost grows
// with the number of keys and of failing key servers, and what a second thread adds.
//
//   operation_bench [--rounds N] [--instructions]
//   operation_bench --only TYPE:SIZE --times N      performs one case and nothing else, for a profiler
//
// --instructions also counts instructions, which do not depend on what else the machine does; it needs
// valgrind and takes some minutes.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/allocations.h"
#include "bench/arguments.h"
#include "bench/operations.h"
#include "bench/parallel.h"
#include "bench/process.h"

using Bench::Case;
using Bench::Median;
using Bench::Operation;
using Bench::Work;

namespace {

struct Options {
  int rounds = 21;
  bool instructions = false;
  Case only{"", 0};
  unsigned times = 1;
};

// ---- One case

struct Cost {
  double microseconds = 0;  ///< CPU time of one operation, median of the rounds
  double allocations = 0;
  double instructions = 0;  ///< 0 when they were not counted
};

class Measurement {
 public:
  explicit Measurement(const Case& which) : case_(which), operation_(which.Make()) {}

  bool Prepare() {
    // Long beside the resolution of the clock, short enough for the batches of all cases to alternate often.
    constexpr double kBatchSeconds = 0.02;
    // The first operations fill caches and pools, which would count as their cost.
    if (!operation_.Perform(2)) return false;
    const std::uint64_t before = Bench::OwnAllocations();
    const double begin = Bench::ThreadCpuSeconds();
    if (!operation_.Perform(1)) return false;
    const double seconds = Bench::ThreadCpuSeconds() - begin;
    cost_.allocations = static_cast<double>(Bench::OwnAllocations() - before);
    batch_ = static_cast<unsigned>(std::clamp(kBatchSeconds / seconds, 1.0, 1e5));
    return true;
  }

  bool TakeBatch() {
    const double begin = Bench::ThreadCpuSeconds();
    if (!operation_.Perform(batch_)) return false;
    microseconds_.push_back((Bench::ThreadCpuSeconds() - begin) / batch_ * 1e6);
    return true;
  }

  // In a process of its own, so that nothing but the operation is counted.
  bool CountInstructions() {
    // Under valgrind each one takes long; the first, which fills caches, weighs little among ten.
    constexpr unsigned kTimes = 10;
    const std::string which = case_.type + ":" + std::to_string(case_.size);
    const Bench::Usage usage =
        Bench::RunProcess({"valgrind", "--tool=callgrind", "--log-fd=1", "--callgrind-out-file=/dev/null",
                           "--toggle-collect=Bench::Operation::Perform(unsigned int)", Bench::OwnProgram(),
                           "--only", which, "--times", std::to_string(kTimes)});
    const std::size_t found = usage.output.find("Collected : ");
    if (!usage.ok || found == std::string::npos) return false;
    cost_.instructions = std::atof(usage.output.c_str() + found + std::strlen("Collected : ")) / kTimes;
    return true;
  }

  const Case& GetCase() const { return case_; }
  Cost GetCost() const {
    Cost cost = cost_;
    cost.microseconds = Median(microseconds_);
    return cost;
  }

 private:
  Case case_;
  Operation operation_;
  unsigned batch_ = 1;
  std::vector<double> microseconds_;
  Cost cost_;
};

// The batches of all cases alternate, so that a busy moment of the machine affects all of them alike.
bool MeasureAll(const Options& options, std::vector<Measurement>& measurements) {
  for (Measurement& measurement : measurements) {
    if (!measurement.Prepare()) return false;
    if (options.instructions && !measurement.CountInstructions()) return false;
  }
  for (int round = 0; round < options.rounds; ++round) {
    for (Measurement& measurement : measurements) {
      if (!measurement.TakeBatch()) return false;
    }
  }
  return true;
}

void ReportCost(const char* title, const Cost& cost) {
  std::printf("%-44s %9.1f us %8.0f allocations", title, cost.microseconds, cost.allocations);
  if (cost.instructions > 0) std::printf(" %12.0f instructions", cost.instructions);
  std::printf("\n");
}

// ---- Growth: what one more key or key server costs, over the small and over the large step. Linear growth
// has a ratio of 1.

double Added(double small, double large, std::uint32_t from, std::uint32_t to) {
  return (large - small) / (to - from);
}

void ReportAdded(const char* what, const std::array<double, 3>& costs,
                 const std::array<std::uint32_t, 3>& sizes) {
  const double first = Added(costs[0], costs[1], sizes[0], sizes[1]);
  const double second = Added(costs[1], costs[2], sizes[1], sizes[2]);
  std::printf("  each one more, in %-14s %10.2f from %u to %u, %10.2f from %u to %u, ratio %.2f\n", what,
              first, sizes[0], sizes[1], second, sizes[1], sizes[2], second / first);
}

void ReportGrowth(const char* title, const Measurement* three) {
  std::array<std::uint32_t, 3> sizes{};
  std::array<Cost, 3> costs{};
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    sizes[i] = three[i].GetCase().size;
    costs[i] = three[i].GetCost();
    ReportCost((std::string(title) + " " + std::to_string(sizes[i])).c_str(), costs[i]);
  }
  ReportAdded("microseconds", {costs[0].microseconds, costs[1].microseconds, costs[2].microseconds}, sizes);
  ReportAdded("allocations", {costs[0].allocations, costs[1].allocations, costs[2].allocations}, sizes);
  if (costs[0].instructions > 0)
    ReportAdded("instructions", {costs[0].instructions, costs[1].instructions, costs[2].instructions}, sizes);
}

// ---- Threads

struct Ratios {
  std::vector<double> work;  ///< of two by one, in the same time
  std::vector<double> cpu;   ///< the same, when CPU time alone is looked at
  long waits = 0;

  bool Add(const Work& one, const Work& two) {
    work.push_back(two.operations / one.operations);
    cpu.push_back(2 * one.CpuMicroseconds() / two.CpuMicroseconds());
    waits += two.waits;
    return one.ok && two.ok;
  }
  void Report(const char* what) const {
    std::printf(
        "%s: %.2f times the work of one (best %.2f), %.2f by the CPU time of an operation, %ld waits\n", what,
        Median(work), *std::max_element(work.begin(), work.end()), Median(cpu), waits);
  }
};

// Alternates with one thread. A busy moment gives a low ratio, so the best one is reported beside the median.
// Processes share nothing: what they lose is due to the machine, what threads lose beyond that to the
// library.
bool MeasureThreads(const Options& options) {
  Ratios threads;
  Ratios processes;
  for (int round = 0; round < options.rounds; ++round) {
    const Work one = Bench::WorkOnThreads(1);
    if (!threads.Add(one, Bench::WorkOnThreads(2)) || !processes.Add(one, Bench::WorkInProcesses(2)))
      return false;
  }
  threads.Report("two threads");
  processes.Report("two processes");
  return true;
}

// ---- The program

bool RunAll(const Options& options) {
  std::vector<Measurement> measurements;
  for (const std::uint32_t keys : {10U, 100U, 1000U}) measurements.emplace_back(Case{"decrypt", keys});
  for (const std::uint32_t servers : {1U, 8U, 64U}) measurements.emplace_back(Case{"refused", servers});
  for (const std::uint32_t servers : {1U, 8U, 64U}) measurements.emplace_back(Case{"dead", servers});
  if (!MeasureAll(options, measurements)) return false;
  std::printf("CPU time: median of %d rounds\n", options.rounds);
  ReportCost("DeleteKey, one key server", measurements[3].GetCost());
  ReportGrowth("Decrypt, keys:", &measurements[0]);
  ReportGrowth("DeleteKey, all but the last refuse, servers:", &measurements[3]);
  ReportGrowth("DeleteKey, all but the last dead, servers:", &measurements[6]);
  return MeasureThreads(options);
}

bool RunOnly(const Options& options) {
  Operation operation = options.only.Make();
  return operation.Perform(options.times);
}

bool ParseCase(const char* text, Case& which) {
  const char* const colon = std::strchr(text, ':');
  if (colon == nullptr) return false;
  which = {std::string(text, colon), static_cast<std::uint32_t>(std::atoi(colon + 1))};
  return which.IsKnown();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  Bench::Arguments arguments("What a named operation costs without a network", "operation_bench");
  arguments.AddCount("--rounds", options.rounds, "number of rounds; the median is reported");
  arguments.AddFlag("--instructions", options.instructions, "count instructions as well (needs valgrind)");
  const auto isCase = [&options](const std::string& text) { return ParseCase(text.c_str(), options.only); };
  arguments.AddText("--only", isCase, "TYPE:SIZE",
                    "TYPE:SIZE, perform this case alone; TYPE is refused, dead or decrypt");
  arguments.AddCount("--times", options.times, "how often --only performs it");
  arguments.Require("--times", "--only");
  if (const auto status = arguments.Parse(argc, argv)) return *status;
  const bool ok = options.only.IsKnown() ? RunOnly(options) : RunAll(options);
  if (!ok) std::fprintf(stderr, "operation_bench: an operation or a count failed\n");
  return ok ? 0 : 1;
}

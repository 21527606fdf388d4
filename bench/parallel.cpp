// Runs the same operations on threads and in processes at the same time, so that operation_bench can see what
// threads lose by sharing the library's state.
#include "bench/parallel.h"

#include <chrono>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bench/operations.h"
#include "bench/process.h"

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

// Long beside a time slice of the scheduler, short enough for many rounds.
constexpr std::chrono::milliseconds kTime(250);

Work WorkUntil(Clock::time_point end) {
  constexpr unsigned kBatch = 32;  // so that reading the clock costs nothing beside the operations
  Operation operation = Case{"refused", 1}.Make();
  Work work;
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_THREAD, &before);
  const double begin = ThreadCpuSeconds();
  while (work.ok && Clock::now() < end) {
    work.ok = operation.Perform(kBatch);
    work.operations += kBatch;
  }
  work.cpuSeconds = ThreadCpuSeconds() - begin;
  ::getrusage(RUSAGE_THREAD, &after);
  work.waits = after.ru_nvcsw - before.ru_nvcsw;
  return work;
}

Work Sum(const std::vector<Work>& works) {
  Work all;
  for (const Work& work : works) {
    all.operations += work.operations;
    all.cpuSeconds += work.cpuSeconds;
    all.waits += work.waits;
    all.ok = all.ok && work.ok;
  }
  return all;
}

// Works in a child process, which writes its result to the pipe.
bool BeginChild(Clock::time_point end, int pipe) {
  const pid_t child = ::fork();
  if (child != 0) return child > 0;
  const Work work = WorkUntil(end);
  ::_exit(::write(pipe, &work, sizeof work) == static_cast<ssize_t>(sizeof work) ? 0 : 1);
}

}  // namespace

Work WorkOnThreads(unsigned threads) {
  const Clock::time_point end = Clock::now() + kTime;
  std::vector<Work> works(threads);
  std::vector<std::thread> running;
  running.reserve(works.size());
  for (Work& work : works) running.emplace_back([&work, end] { work = WorkUntil(end); });
  for (std::thread& thread : running) thread.join();
  return Sum(works);
}

Work WorkInProcesses(unsigned processes) {
  std::vector<Work> works(processes);
  int ends[2];
  if (::pipe(ends) != 0) return Work{.ok = false};
  const Clock::time_point end = Clock::now() + kTime;
  unsigned begun = 0;
  while (begun < processes && BeginChild(end, ends[1])) ++begun;
  ::close(ends[1]);
  for (Work& work : works) {
    if (::read(ends[0], &work, sizeof work) != static_cast<ssize_t>(sizeof work)) work.ok = false;
  }
  ::close(ends[0]);
  for (unsigned i = 0; i < begun; ++i) ::wait(nullptr);
  return Sum(works);
}

}  // namespace Bench

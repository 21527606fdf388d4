// Runs many tasks on a few threads: the engine of encrypt, decrypt and verify with many files. It knows
// nothing of files or servers, so that its rules (order, failures, cancellation) can be tested alone.
#include "tools/task_runner.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <sys/resource.h>
#include <system_error>
#include <thread>

namespace CryptCli {

namespace {

// What one file in progress has open at most: the source, the staging file, temporary files of the library,
// and connections to the crypt service and to each key server.
constexpr rlim_t kDescriptorsOfJob = 16;
// The standard streams, the random generator, the list of files, and whatever the caller has left open.
constexpr rlim_t kOtherDescriptors = 32;

/// What the threads of one RunTasks share. Lives on its stack until all have ended.
class Run {
 public:
  Run(std::size_t count, const TaskOptions& options, const Task& task, const TaskDone& done)
      : options_(options), task_(task), done_(done), codes_(count) {}

  void Work() {
    while (!isOver_ && !options_.stop.stop_requested()) {
      const std::size_t index = next_++;
      if (index >= codes_.size()) return;
      const ExitCode code = Perform(index);
      if (code != ExitCode::Success && options_.failFast) isOver_ = true;
      const std::lock_guard lock(mutex_);
      codes_[index] = code;
      done_(index, code);
    }
  }

  std::vector<std::optional<ExitCode>> TakeCodes() { return std::move(codes_); }

 private:
  // An exception would abort the process, and with it the files that other threads are writing.
  ExitCode Perform(std::size_t index) const {
    try {
      return task_(index, options_.stop);
    } catch (const std::exception&) {
      return ExitCode::Failed;
    }
  }

  const TaskOptions& options_;
  const Task& task_;
  const TaskDone& done_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> isOver_{false};
  std::mutex mutex_;  // for what follows, and while done_ runs
  std::vector<std::optional<ExitCode>> codes_;
};

}  // namespace

unsigned LimitJobs(unsigned jobs) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return jobs;
  const rlim_t needed = kOtherDescriptors + jobs * kDescriptorsOfJob;
  if (limit.rlim_cur < needed) {
    rlimit raised = limit;
    raised.rlim_cur = std::min(needed, limit.rlim_max);
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  if (limit.rlim_cur >= needed) return jobs;
  const rlim_t left = limit.rlim_cur > kOtherDescriptors ? limit.rlim_cur - kOtherDescriptors : 0;
  return std::max(static_cast<unsigned>(left / kDescriptorsOfJob), 1U);
}

std::vector<std::optional<ExitCode>> RunTasks(std::size_t count, const TaskOptions& options, const Task& task,
                                              const TaskDone& done) {
  Run run(count, options, task, done);
  {
    std::vector<std::jthread> threads;
    const std::size_t wanted = std::min<std::size_t>(std::max(options.jobs, 1U), count);
    // With no more threads than the system allows the work takes longer, but it is done: at least this
    // thread works.
    try {
      while (threads.size() + 1 < wanted) threads.emplace_back([&run] { run.Work(); });
    } catch (const std::system_error&) {
    }
    run.Work();
  }
  return run.TakeCodes();
}

}  // namespace CryptCli

#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <stop_token>
#include <vector>

#include "tools/exit_code.h"

namespace CryptCli {

/// How a set of tasks is run.
struct TaskOptions {
  unsigned jobs = 1;      ///< tasks at a time, at least 1
  bool failFast = false;  ///< starts no task after one that failed
  std::stop_token stop;   ///< once requested, no further task starts; running ones see it and end early
};

/// One of the tasks that RunTasks counts. Called on several threads at once, each index once.
using Task = std::function<ExitCode(std::size_t index, const std::stop_token& stop)>;
/// Called after each task that was started, by one thread at a time, in the order in which they end.
using TaskDone = std::function<void(std::size_t index, ExitCode code)>;

/// As many of the jobs as the open files that the system allows this process are enough for, at least one.
/// Raises the soft limit of open files first, as far as it is needed and allowed.
unsigned LimitJobs(unsigned jobs);

/// Runs the tasks 0 to count - 1, which start in this order, on the calling thread and further ones, and
/// returns when all have ended. The result has the code of each task, in its place; none for one that was
/// never started. A task that throws has failed.
std::vector<std::optional<ExitCode>> RunTasks(std::size_t count, const TaskOptions& options, const Task& task,
                                              const TaskDone& done);

}  // namespace CryptCli

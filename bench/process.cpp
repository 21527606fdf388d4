// Processes, clocks, work folders and the page cache: what all benchmarks need from the system.
#include "bench/process.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {
namespace {

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double ReadClock(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Runs in the child. 127 is what a shell returns for a command that cannot be started.
[[noreturn]] void Execute(const std::vector<std::string>& command, int output) {
  ::dup2(output, STDOUT_FILENO);
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  ::execvp(words[0], words.data());
  ::_exit(127);
}

}  // namespace

Usage RunProcess(const std::vector<std::string>& command) {
  Usage usage;
  int ends[2];
  if (::pipe(ends) != 0) return usage;
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) Execute(command, ends[1]);
  ::close(ends[1]);
  // Read before waiting: a child whose output fills the pipe would never end.
  char chunk[4096];
  for (ssize_t got; (got = ::read(ends[0], chunk, sizeof chunk)) > 0;) {
    usage.output.append(chunk, static_cast<std::size_t>(got));
  }
  ::close(ends[0]);
  int status = 0;
  rusage resources{};
  // wait4 reports the resources of this child alone; RUSAGE_CHILDREN would add up all of them.
  if (::wait4(child, &status, 0, &resources) != child) return usage;
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
  usage.cpuSeconds = Seconds(resources.ru_utime) + Seconds(resources.ru_stime);
  usage.wallSeconds = wall.count();
  usage.peakKiB = resources.ru_maxrss;
  usage.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return usage;
}

// Benchmarks start themselves again, so that a measurement has a process of its own.
std::string OwnProgram() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

double OwnCpuSeconds() {
  return ReadClock(CLOCK_PROCESS_CPUTIME_ID);
}

double ThreadCpuSeconds() {
  return ReadClock(CLOCK_THREAD_CPUTIME_ID);
}

long OwnPeakKiB() {
  rusage resources{};
  ::getrusage(RUSAGE_SELF, &resources);
  return resources.ru_maxrss;
}

WorkFolder::WorkFolder(const std::string& parent, const std::string& program)
    : path_(parent + "/" + program + ".XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) {
    std::perror(program.c_str());
    path_.clear();
    return;
  }
  // The library's temporary files must be on the measured file system too, and go with the folder.
  ::setenv("TMPDIR", path_.c_str(), 1);
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  if (IsThere()) std::filesystem::remove_all(path_, ignored);
}

bool ReadThrough(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  std::vector<char> chunk(std::size_t{1024} * 1024);
  ssize_t got = 1;
  while (got > 0) got = ::read(file, chunk.data(), chunk.size());
  ::close(file);
  return got == 0;
}

bool FillPageCache(const std::string& holes) {
  const auto memory = static_cast<std::uintmax_t>(::sysconf(_SC_PHYS_PAGES)) *
                      static_cast<std::uintmax_t>(::sysconf(_SC_PAGESIZE));
  std::error_code error;
  // A sparse file takes no space on the disk, but each page of it that is read takes one in the cache.
  std::ofstream(holes, std::ios::app).close();
  std::filesystem::resize_file(holes, memory, error);
  return !error && ReadThrough(holes);
}

// The median and not the mean: one busy moment of the machine must not count.
double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace Bench

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

/// A folder of its own for a run, which goes with its content when the object does. Temporary files of the
/// process are made there as well.
class WorkFolder {
 public:
  /// Makes `program`.XXXXXX in `parent`; prints why it cannot.
  WorkFolder(const std::string& parent, const std::string& program);
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder();

  bool IsThere() const { return !path_.empty(); }
  const std::string& GetPath() const { return path_; }

 private:
  std::string path_;
};

/// Reads a file to its end, so that it lies in the system's page cache.
bool ReadThrough(const std::string& path);

/// Fills the page cache, as a server that has run for a while has it, by reading through the file `holes`,
/// which is made as large as the memory without taking room on the disk. On a virtual machine whose host
/// takes free memory back the first use of a free page costs ten times that of a page of the cache, which
/// would be measured instead of the work.
bool FillPageCache(const std::string& holes);

double Median(std::vector<double> values);

}  // namespace Bench

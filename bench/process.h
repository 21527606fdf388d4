#pragma once

#include <string>
#include <vector>

namespace Bench {

/// The resources that a process has used, and its output.
struct Usage {
  double cpuSeconds = 0;  ///< user and system
  double wallSeconds = 0;
  long peakKiB = 0;  ///< peak resident memory
  bool ok = false;
  std::string output;  ///< what it printed
};

/// Runs a command to its end; the first word is looked up in the path.
Usage RunProcess(const std::vector<std::string>& command);

/// The path of the running program.
std::string OwnProgram();
/// CPU seconds that this process has used so far.
double OwnCpuSeconds();
/// CPU seconds that the calling thread has used so far.
double ThreadCpuSeconds();
/// Peak resident memory of this process so far.
long OwnPeakKiB();

/// A folder for one run, deleted with its contents on destruction. Temporary files of the process are created
/// there too.
class WorkFolder {
 public:
  /// Creates `program`.XXXXXX in `parent`; on failure prints the reason.
  WorkFolder(const std::string& parent, const std::string& program);
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder();

  bool IsThere() const { return !path_.empty(); }
  const std::string& GetPath() const { return path_; }

 private:
  std::string path_;
};

/// Reads a file to its end, so that it is in the system's page cache.
bool ReadThrough(const std::string& path);

/// Fills the page cache, as on a server that has run for a while, by reading the file `holes`, a sparse file
/// as large as the memory. On a virtual machine whose host reclaims free memory, the first use of a free page
/// takes ten times as long as that of a page in the cache, and that would be measured instead of the work.
bool FillPageCache(const std::string& holes);

double Median(std::vector<double> values);

}  // namespace Bench

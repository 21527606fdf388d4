#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace TestSupport {

/// How a program is started.
struct Start {
  std::string program;
  std::vector<std::string> arguments;
  std::string outputFile{};       ///< where standard output goes; empty for a pipe that is read
  bool errorsToTerminal = false;  ///< standard error is a terminal, whose output is read too
  std::string inputFile{"/dev/null"};
  bool outputToTerminal = false;  ///< standard output is the terminal of standard error
};

/// A program that runs beside the test. Its output is read only while waiting for its end, so before that it
/// must fit into a pipe.
class Process {
 public:
  explicit Process(const Start& start);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  /// Kills the program if it is still running.
  ~Process();

  void Signal(int signal) const;
  /// Reads both outputs to their end, waits for the program and returns its exit code, or -1 if a signal
  /// ended it.
  int Wait();
  const std::string& GetOutput() const { return output_; }
  const std::string& GetErrors() const { return errors_; }

 private:
  pid_t id_ = -1;
  int outputEnd_ = -1;
  int errorsEnd_ = -1;
  std::string output_;
  std::string errors_;
};

/// The result of a program.
struct Finished {
  int code = -1;
  std::string output;
  std::string errors;
};

Finished RunProcess(const Start& start);

}  // namespace TestSupport

#pragma once

#include <chrono>
#include <csignal>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "tests/stand/folder.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {

/// The contents of a file; empty if it cannot be read.
std::string ReadFile(const std::string& path);

/// Owns a running cryptstand, started as a shell would start it, with its output in the files "out" and
/// "error" of a folder, which must outlive it. The destructor kills it.
class Program {
 public:
  /// Without descriptors its standard input, output and error are closed.
  Program(const Folder& folder, std::vector<std::string> arguments, bool hasDescriptors = true);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t GetProcess() const { return process_; }
  /// Sends a signal and waits for the end.
  int Stop(int signal);
  /// The exit code, or minus the signal that ended it.
  int Wait();
  /// Sends a signal, unless it has ended already. Wait() still has to be called.
  bool HasEnded(int signal);
  std::string Out() const;
  std::string Error() const;

 private:
  std::string out_;
  std::string error_;
  pid_t process_ = -1;
};

/// Whether `isDone` becomes true within half a minute.
template <class Condition>
bool WaitFor(const Condition& isDone) {
  for (int i = 0; i < 3000; ++i) {
    if (isDone()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

/// The contents of the program's --url-file once it exists; empty if it does not within half a minute.
KVMap WaitForUrls(const std::string& path);

}  // namespace CryptStand

#pragma once

#include <csignal>
#include <pthread.h>
#include <string>
#include <thread>

namespace CryptCli {

/// Looks after a running operation from a thread of its own: shows on a terminal that it goes on, and on
/// SIGINT, SIGTERM or SIGHUP removes what it has on disk and ends the program.
///
/// The library keeps plain content in temporary files while it works. So the program gets a temporary
/// directory of its own here, which goes with it however it ends.
class Watch {
 public:
  /// Begins with the program; signals are held back from all threads that start later. Without a directory
  /// for temporary files IsReady() is false and errno tells why.
  Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch();

  bool IsReady() const { return !directory_.empty(); }
  /// Shows `label` with the time that has passed, if standard error is a terminal and `show` is set, until
  /// Stop(). `draft` is removed when a signal ends the program.
  void Start(const std::string& label, const std::string& draft, bool show);
  void Stop();

 private:
  void Run(const std::string& label, const std::string& draft, bool show) const;
  void CleanUp(const std::string& draft) const;

  sigset_t signals_;
  std::string directory_;
  std::thread thread_;
};

}  // namespace CryptCli

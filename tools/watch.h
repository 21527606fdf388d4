#pragma once

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <string>
#include <thread>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace CryptCli {

/// Looks after a running operation from a thread of its own: shows on a terminal that it goes on, and on a
/// signal that would end the program removes what it has on disk and ends it.
///
/// The library keeps plain content in temporary files while it works. So the program gets a temporary
/// directory of its own here, which goes with it however it ends.
class Watch {
 public:
  /// Begins with the program; signals are held back from all threads that start later. Without a directory
  /// for temporary files IsReady() is false, with the reason.
  Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch();

  bool IsReady() const { return !directory_.GetPath().IsEmpty(); }
  const OruGuiBase::AnsiStr& GetReason() const { return reason_; }
  /// Shows `label` with the time that has passed, if standard error is a terminal and `show` is set, until
  /// Stop().
  void Start(const std::string& label, bool show);
  void Stop();

 private:
  void Run(const std::string& label, bool show) const;

  sigset_t signals_;
  OruGuiBase::TempDirectory directory_;
  OruGuiBase::AnsiStr reason_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace CryptCli

#pragma once

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <string>
#include <thread>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace CryptCli {

/// Watches a running operation from a thread of its own: shows progress on a terminal, and on a signal that
/// would end the program removes its files and then ends it.
///
/// The library keeps plaintext in temporary files while it works. So this class gives the program a temporary
/// directory of its own, which it owns and removes however the program ends.
class Watch {
 public:
  /// Call before any thread is started: signals are blocked in this thread and all later ones. When no
  /// temporary directory can be created, IsReady() is false and GetReason() says why.
  Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch();

  bool IsReady() const { return !directory_.GetPath().IsEmpty(); }
  const OruGuiBase::AnsiStr& GetReason() const { return reason_; }
  /// Starts the thread. Until Stop() it shows `label` with the elapsed time, if standard error is a terminal
  /// and `show` is set.
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

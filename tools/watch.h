#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <utility>

#include "foundation/ansistr.h"
#include "foundation/file.h"
#include "tools/progress.h"

namespace CryptCli {

/// Watches a running operation from a thread of its own: shows progress on a terminal. On a signal that would
/// end the program it asks the operation to end; if that takes too long, or cannot be asked, it removes the
/// program's files and ends the program.
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
  /// Starts the thread. Until Stop() it shows `label` with the progress, if standard error is a terminal and
  /// `show` is set. A signal calls `cancel`, on that thread; without it the signal ends the program at once.
  void Start(const std::string& label, bool show, std::function<void()> cancel = nullptr);
  /// Takes the progress off the terminal until it changes. For lines of a report in between.
  void ClearLine();
  /// The same until the operation ends. Call it before content is delivered: the content may go to the same
  /// terminal, also by way of a pipe.
  void HideProgress();
  /// What reports the end by a signal that the operation did not take notice of, on the watching thread. Call
  /// it while no thread runs.
  void SetLastReport(std::function<void(int signal)> report) { lastReport_ = std::move(report); }
  /// True for the first caller, who may then report the end of the run. The other one must not.
  bool ClaimReport() { return !isReported_.exchange(true); }
  /// Ends the thread. Returns the signal that cancelled this operation or one before it, or 0.
  int Stop();
  /// Where the operation writes how far it has come.
  Progress& GetProgress() { return progress_; }
  /// The signal that has cancelled the operation; 0 for none.
  int GetSignal() const { return signal_; }
  /// Whether a signal has cancelled the operation.
  bool IsCancelled() const { return signal_ != 0; }

 private:
  void Run(const std::string& label, const std::function<void()>& cancel);
  void ShowTick(const std::string& label, int tick, std::chrono::steady_clock::duration elapsed);
  [[noreturn]] void EndProgram(int signal);

  sigset_t signals_;
  OruGuiBase::TempDirectory directory_;
  OruGuiBase::AnsiStr reason_;
  Progress progress_;
  std::atomic<bool> stopping_{false};
  std::atomic<int> signal_{0};
  std::atomic<bool> isReported_{false};
  std::function<void(int signal)> lastReport_;
  std::mutex lineMutex_;  // for the two below, and while a line is written
  bool isShown_ = false;
  bool isDrawn_ = false;  // only then may a line be cleared: it could be somebody else's
  std::thread thread_;
};

}  // namespace CryptCli

#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>

namespace OruKalvix {

/// Keeps SIGPIPE from ending the process while a thread writes to connections or pipes whose other end may be
/// closed. A library must not change the process's disposition of the signal, so this blocks it in the
/// current thread only, and on destruction removes a signal that the writes have raised.
class SigPipeGuard {
 public:
  SigPipeGuard() noexcept {
    sigset_t pending;
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    if (!wasPending_) pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  SigPipeGuard(const SigPipeGuard&) = delete;
  SigPipeGuard& operator=(const SigPipeGuard&) = delete;
  ~SigPipeGuard() {
    if (wasPending_) return;  // it was blocked already, so the constructor changed nothing
    const timespec now{};
    while (sigtimedwait(&pipe_, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipe_;
  sigset_t before_;
  bool wasPending_ = false;
};

}  // namespace OruKalvix

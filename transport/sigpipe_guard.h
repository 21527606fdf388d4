#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>

namespace OruKalvix {

/// Keeps SIGPIPE from ending the process while a thread writes to connections that the other side may have
/// closed. The process's own disposition of the signal is left alone; only this thread holds it back, and a
/// signal that the writing raised is taken away again.
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
    if (wasPending_) return;  // it was blocked before, so nothing was changed
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

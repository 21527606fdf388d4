#include "transport/sigpipe_guard.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <unistd.h>

namespace OruKalvix {
namespace {

bool IsPending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

bool IsBlocked() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, SIGPIPE) == 1;
}

void WriteToNobody() {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(ends[1]);
}

// The signal has its default disposition: without the guard each of these tests would end the program.
TEST(SigPipeGuard, TakesTheSignalOfABrokenPipeAway) {
  {
    const SigPipeGuard guard;
    WriteToNobody();
  }
  EXPECT_FALSE(IsPending());
  EXPECT_FALSE(IsBlocked());
}

TEST(SigPipeGuard, LeavesTheMaskOfItsCallerAlone) {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  {
    const SigPipeGuard guard;
    WriteToNobody();
  }
  EXPECT_TRUE(IsBlocked());
  EXPECT_FALSE(IsPending());
  pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

TEST(SigPipeGuard, LeavesASignalThatWasPendingBefore) {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  WriteToNobody();
  {
    const SigPipeGuard guard;
    WriteToNobody();
  }
  EXPECT_TRUE(IsPending());
  const timespec now{};
  EXPECT_EQ(sigtimedwait(&pipe, nullptr, &now), SIGPIPE);
  pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

}  // namespace
}  // namespace OruKalvix

#pragma once

#include <functional>
#include <string>

namespace FaultTest {

/// How a child process ended. A plain value.
struct ChildEnd {
  int code = -1;    ///< what it returned, unless a signal ended it
  int signal = 0;   ///< the signal that ended it
  std::string err;  ///< what it wrote to standard error
};

/// The exit code of a child whose work threw.
inline constexpr int kThrew = 99;

/// Runs the work in a child made by fork() and waits for it. The work's result is the exit code; the child
/// runs no destructors. SIGALRM ends a child that takes longer than the seconds.
ChildEnd RunInChild(unsigned seconds, const std::function<int()>& work);

}  // namespace FaultTest

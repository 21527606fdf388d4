#pragma once

#include <functional>
#include <string>

namespace FaultTest {

/// How a child process ended.
struct ChildEnd {
  int code = -1;    ///< what it returned, unless a signal ended it
  int signal = 0;   ///< the signal that ended it
  std::string err;  ///< what it wrote to standard error
};

/// What a child returns whose work threw.
inline constexpr int kThrew = 99;

/// Runs the work in a copy of this process and waits for it. The work's result is the copy's exit code; the
/// copy runs no destructors. One that takes longer than the seconds ends by SIGALRM.
ChildEnd RunInChild(unsigned seconds, const std::function<int()>& work);

}  // namespace FaultTest

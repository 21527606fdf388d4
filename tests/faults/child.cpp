#include "tests/faults/child.h"

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

namespace FaultTest {
namespace {

// An exception must not reach the test framework in the child.
int Protected(const std::function<int()>& work) {
  try {
    return work();
  } catch (...) {
    return kThrew;
  }
}

}  // namespace

ChildEnd RunInChild(unsigned seconds, const std::function<int()>& work) {
  ChildEnd end;
  int ends[2];
  if (::pipe(ends) != 0) return end;
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDERR_FILENO);
    ::alarm(seconds);
    ::_exit(Protected(work));
  }
  ::close(ends[1]);
  char chunk[4096];
  for (ssize_t got; (got = ::read(ends[0], chunk, sizeof chunk)) > 0;)
    end.err.append(chunk, static_cast<std::size_t>(got));
  ::close(ends[0]);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) return end;
  if (WIFEXITED(status)) end.code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  return end;
}

}  // namespace FaultTest

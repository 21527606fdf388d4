// Starts the command as a user does, with pipes or a terminal, and collects its output. Spawned and not
// forked: the tests' servers run on threads of this process.
#include "tests/tools/process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace TestSupport {

namespace {

struct Ends {
  int read = -1;
  int write = -1;
};

Ends MakePipe() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return {ends[0], ends[1]};
}

Ends MakeTerminal() {
  Ends ends;
  ends.read = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_EQ(grantpt(ends.read), 0);
  EXPECT_EQ(unlockpt(ends.read), 0);
  ends.write = open(ptsname(ends.read), O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_GE(ends.write, 0);
  return ends;
}

Ends OpenOutput(const std::string& file) {
  if (file.empty()) return MakePipe();
  return {-1, open(file.c_str(), O_WRONLY | O_CLOEXEC)};
}

pid_t Spawn(const Start& start, int output, int errors) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, start.inputFile.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  std::vector<char*> arguments{const_cast<char*>(start.program.c_str())};
  for (const std::string& argument : start.arguments)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  pid_t id = -1;
  EXPECT_EQ(posix_spawn(&id, start.program.c_str(), &actions, nullptr, arguments.data(), environ), 0)
      << start.program;
  posix_spawn_file_actions_destroy(&actions);
  return id;
}

// Reads what is available; closes at the end of file. At the end of a terminal read() fails instead.
void ReadFrom(int& end, std::string& text) {
  char bytes[4096];
  const ssize_t count = read(end, bytes, sizeof(bytes));
  if (count > 0) {
    text.append(bytes, static_cast<std::size_t>(count));
  } else if (count == 0 || errno != EINTR) {
    close(end);
    end = -1;
  }
}

}  // namespace

Process::Process(const Start& start) {
  const Ends errors = start.errorsToTerminal ? MakeTerminal() : MakePipe();
  const Ends output = start.outputToTerminal ? Ends{-1, fcntl(errors.write, F_DUPFD_CLOEXEC, 0)}
                                             : OpenOutput(start.outputFile);
  id_ = Spawn(start, output.write, errors.write);
  close(output.write);
  close(errors.write);
  outputEnd_ = output.read;
  errorsEnd_ = errors.read;
}

Process::~Process() {
  if (id_ <= 0) return;
  Signal(SIGKILL);
  Wait();
}

void Process::Signal(int signal) const {
  if (id_ > 0) kill(id_, signal);
}

int Process::Wait() {
  while (outputEnd_ >= 0 || errorsEnd_ >= 0) {
    pollfd ends[2] = {{outputEnd_, POLLIN, 0}, {errorsEnd_, POLLIN, 0}};
    if (poll(ends, 2, -1) < 0) continue;
    if (ends[0].revents != 0) ReadFrom(outputEnd_, output_);
    if (ends[1].revents != 0) ReadFrom(errorsEnd_, errors_);
  }
  int status = 0;
  if (id_ > 0) waitpid(id_, &status, 0);
  id_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Finished RunProcess(const Start& start) {
  Process process(start);
  const int code = process.Wait();
  return {code, process.GetOutput(), process.GetErrors()};
}

}  // namespace TestSupport

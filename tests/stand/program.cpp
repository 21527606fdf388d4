#include "tests/stand/program.h"

#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace CryptStand {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

Program::Program(const Folder& folder, std::vector<std::string> arguments, bool hasDescriptors)
    : out_(folder.Path("out")), error_(folder.Path("error")) {
  arguments.insert(arguments.begin(), CRYPTSTAND_PROGRAM);
  std::vector<char*> raw;
  for (std::string& argument : arguments) raw.push_back(argument.data());
  raw.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), kFlags, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, error_.c_str(), kFlags, 0600);
  for (int i = STDIN_FILENO; !hasDescriptors && i <= STDERR_FILENO; ++i)
    posix_spawn_file_actions_addclose(&actions, i);
  if (posix_spawn(&process_, raw[0], &actions, nullptr, raw.data(), environ) != 0) process_ = -1;
  posix_spawn_file_actions_destroy(&actions);
}

Program::~Program() {
  if (process_ > 0) Stop(SIGKILL);
}

int Program::Stop(int signal) {
  kill(process_, signal);
  return Wait();
}

int Program::Wait() {
  int status = 0;
  if (process_ <= 0 || waitpid(std::exchange(process_, -1), &status, 0) < 0) return -1000;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool Program::HasEnded(int signal) {
  siginfo_t ended = {};
  if (waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
      ended.si_pid != 0)
    return true;
  kill(process_, signal);
  return false;
}

std::string Program::Out() const {
  return ReadFile(out_);
}

std::string Program::Error() const {
  return ReadFile(error_);
}

KVMap WaitForUrls(const std::string& path) {
  std::optional<KVMap> urls;
  WaitFor([&] { return (urls = ReadObject(ReadFile(path))).has_value(); });
  return urls.value_or(KVMap());
}

}  // namespace CryptStand

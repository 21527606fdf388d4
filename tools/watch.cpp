#include "tools/watch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/unfinished.h"
#include "tools/exit_code.h"

namespace CryptCli {

namespace {

// Those that come from outside and end a program unless it says otherwise. What a fault of the program itself
// raises is not among them, nor SIGKILL.
constexpr int kEndingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT,   SIGTERM, SIGALRM, SIGVTALRM, SIGPROF,
                                  SIGUSR1, SIGUSR2, SIGSTKFLT, SIGIO,   SIGXCPU, SIGPWR};
constexpr long kTickNanoseconds = 200'000'000;
constexpr const char* kClearLine = "\r\033[K";

// Wakes the thread; no other use is made of it.
int StopSignal() {
  return SIGRTMIN;
}

void ShowTick(const std::string& label, int tick) {
  const int seconds = static_cast<int>(tick * kTickNanoseconds / 1'000'000'000);
  std::fprintf(stderr, "%s%c %s %d:%02d", kClearLine, "|/-\\"[tick % 4], label.c_str(), seconds / 60,
               seconds % 60);
}

// A signal that is held back arrives even when it is ignored; under nohup it must not. One that is handled,
// as a profiler does, ends nothing.
bool EndsTheProgram(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
         action.sa_handler == SIG_DFL;
}

}  // namespace

Watch::Watch() {
  sigemptyset(&signals_);
  sigaddset(&signals_, StopSignal());
  for (const int signal : kEndingSignals) {
    if (EndsTheProgram(signal)) sigaddset(&signals_, signal);
  }
  for (int signal = StopSignal() + 1; signal <= SIGRTMAX; ++signal) {
    if (EndsTheProgram(signal)) sigaddset(&signals_, signal);
  }
  pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  // A reader that has gone and a file that is too large show when they are written to; they must not end the
  // program before the directory is taken away.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  if (directory_.Create("cryptcli") && setenv("TMPDIR", directory_.GetPath().GetText(), 1) != 0) {
    OruGuiBase::SetLastErrorFromErrno();
    directory_.Cleanup();
  }
  if (!IsReady()) reason_ = OruGuiBase::GetSystemErrorText();
}

Watch::~Watch() {
  Stop();
}

void Watch::Start(const std::string& label, bool show) {
  const bool isTerminal = isatty(STDERR_FILENO) == 1;
  stopping_ = false;
  thread_ = std::thread([this, label, shown = show && isTerminal] { Run(label, shown); });
}

void Watch::Stop() {
  if (!thread_.joinable()) return;
  stopping_ = true;
  pthread_kill(thread_.native_handle(), StopSignal());
  thread_.join();
}

void Watch::Run(const std::string& label, bool show) const {
  const timespec tick{0, kTickNanoseconds};
  for (int count = 0; !stopping_; ++count) {
    const int signal = sigtimedwait(&signals_, nullptr, &tick);
    if (show && signal < 0 && errno == EAGAIN) ShowTick(label, count);
    if (signal < 0 || signal == StopSignal()) continue;
    if (show) std::fputs(kClearLine, stderr);
    OruGuiBase::RemoveUnfinishedFiles();
    // The operation still runs on its thread, so nothing of it may be destroyed.
    std::_Exit(static_cast<int>(ExitCode::Interrupted) + signal);
  }
  if (show) std::fputs(kClearLine, stderr);
}

}  // namespace CryptCli

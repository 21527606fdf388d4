// Progress and signals. A signal handler could not remove files safely (almost nothing may be called in one),
// so all signals are blocked and one thread waits for them with sigtimedwait.
#include "tools/watch.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/unfinished.h"
#include "tools/exit_code.h"

namespace CryptCli {

namespace {

// The signals from outside that end a program by default. Those that its own faults raise (SIGSEGV ...) are
// not among them, and SIGKILL cannot be caught.
constexpr int kEndingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT,   SIGTERM, SIGALRM, SIGVTALRM, SIGPROF,
                                  SIGUSR1, SIGUSR2, SIGSTKFLT, SIGIO,   SIGXCPU, SIGPWR};
constexpr long kTickNanoseconds = 200'000'000;  // often enough for the turning mark to look alive
constexpr const char* kClearLine = "\r\033[K";
using Clock = std::chrono::steady_clock;
// An operation that is asked to end notices it within a second, or at its next chunk of a file. One that does
// not, for example because a file system hangs, is left behind.
constexpr std::chrono::seconds kPatience{3};

// Stop() sends it to wake the thread; nothing else uses it.
int StopSignal() {
  return SIGRTMIN;
}

// Whether standard error is a terminal that can clear a line. A dumb one, such as an editor's, shows the
// codes.
bool CanShowProgress() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

// sigtimedwait returns a blocked signal even if its disposition is to ignore it, as under nohup: that one
// must not end the program. Neither must one that has a handler, such as a profiler's.
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
  // A closed pipe and a file above the size limit show as errors of write(). As signals they would end the
  // program before it could remove its directory.
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

void Watch::Start(const std::string& label, bool show, std::function<void()> cancel) {
  isShown_ = show && CanShowProgress();  // no other thread yet
  stopping_ = false;
  // signal_ stays: work that follows what a signal has cancelled must not succeed.
  progress_.done = 0;
  progress_.total = 0;
  thread_ = std::thread([this, label, cancel = std::move(cancel)] { Run(label, cancel); });
}

void Watch::ClearLine() {
  const std::lock_guard lock(lineMutex_);
  if (isDrawn_) std::fputs(kClearLine, stderr);
  isDrawn_ = false;
}

void Watch::HideProgress() {
  {
    const std::lock_guard lock(lineMutex_);
    isShown_ = false;
  }
  ClearLine();
}

void Watch::ShowTick(const std::string& label, int tick, Clock::duration elapsed) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed);
  const std::lock_guard lock(lineMutex_);
  if (!isShown_) return;
  isDrawn_ = true;
  std::fprintf(stderr, "%s%c %s", kClearLine, "|/-\\"[tick % 4],
               DescribeProgress(label, milliseconds, progress_.done, progress_.total).c_str());
}

int Watch::Stop() {
  if (!thread_.joinable()) return 0;
  stopping_ = true;
  // A flag alone would be seen only after the current wait.
  pthread_kill(thread_.native_handle(), StopSignal());
  thread_.join();
  return signal_;
}

// _Exit, not exit: the operation still runs on its thread, so none of its objects may be destroyed.
void Watch::EndProgram(int signal) {
  OruGuiBase::RemoveUnfinishedFiles();
  if (lastReport_ != nullptr && ClaimReport()) lastReport_(signal);
  std::_Exit(static_cast<int>(ExitCode::Interrupted) + signal);
}

void Watch::Run(const std::string& label, const std::function<void()>& cancel) {
  const timespec tick{0, kTickNanoseconds};
  const Clock::time_point start = Clock::now();
  Clock::time_point deadline = Clock::time_point::max();
  for (int count = 0; !stopping_; ++count) {
    const int signal = sigtimedwait(&signals_, nullptr, &tick);
    if (signal < 0 && errno == EAGAIN) ShowTick(label, count, Clock::now() - start);
    if (Clock::now() > deadline) {
      ClearLine();
      EndProgram(signal_);
    }
    if (signal < 0 || signal == StopSignal()) continue;
    ClearLine();
    // A second signal comes from somebody who does not want to wait.
    if (cancel == nullptr || signal_ != 0) EndProgram(signal);
    signal_ = signal;
    deadline = Clock::now() + kPatience;
    cancel();
  }
  ClearLine();
}

}  // namespace CryptCli

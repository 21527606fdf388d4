#include "tools/watch.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "foundation/file.h"
#include "tools/exitcode.h"

namespace CryptCli {

namespace {

constexpr int kStopSignal = SIGUSR1;
constexpr long kTickNanoseconds = 200'000'000;
constexpr int kCleanUpAttempts = 1000;
constexpr const char* kClearLine = "\r\033[K";

void ShowTick(const std::string& label, int tick) {
  const int seconds = static_cast<int>(tick * kTickNanoseconds / 1'000'000'000);
  std::fprintf(stderr, "%s%c %s %d:%02d", kClearLine, "|/-\\"[tick % 4], label.c_str(), seconds / 60,
               seconds % 60);
}

// A signal that is held back arrives even when it is ignored; under nohup it must not.
bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Watch::Watch() {
  sigemptyset(&signals_);
  sigaddset(&signals_, kStopSignal);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (!IsIgnored(signal)) sigaddset(&signals_, signal);
  }
  pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  // A reader of standard output that has gone shows when it is written to; it must not end the program before
  // the directory is taken away.
  std::signal(SIGPIPE, SIG_IGN);
  const OruGuiBase::Directory place(OruGuiBase::DirectoryType::Temporary);
  std::string path = std::string(place.GetPath().View()) + "/cryptcli-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) return;
  if (setenv("TMPDIR", path.c_str(), 1) == 0) {
    directory_ = path;
  } else {
    rmdir(path.c_str());
  }
}

Watch::~Watch() {
  Stop();
  CleanUp("");
}

void Watch::Start(const std::string& label, const std::string& draft, bool show) {
  const bool isTerminal = isatty(STDERR_FILENO) == 1;
  thread_ = std::thread([this, label, draft, shown = show && isTerminal] { Run(label, draft, shown); });
}

void Watch::Stop() {
  if (!thread_.joinable()) return;
  pthread_kill(thread_.native_handle(), kStopSignal);
  thread_.join();
}

void Watch::Run(const std::string& label, const std::string& draft, bool show) const {
  const timespec tick{0, kTickNanoseconds};
  for (int count = 0;; ++count) {
    const int signal = sigtimedwait(&signals_, nullptr, &tick);
    if (signal < 0) {
      if (show && errno == EAGAIN) ShowTick(label, count);
      continue;
    }
    if (show) std::fputs(kClearLine, stderr);
    if (signal == kStopSignal) return;
    CleanUp(draft);
    // The operation is still under way on its thread, so nothing of it may be destroyed.
    std::_Exit(static_cast<int>(ExitCode::Interrupted) + signal);
  }
}

// When a signal ends the program, the operation is still under way: a directory may get another file while it
// is emptied, and is then tried again; once it is gone, no file can be made in it. The draft comes last, as
// close to the end as can be.
void Watch::CleanUp(const std::string& draft) const {
  std::error_code error;
  for (int attempt = 0; attempt < kCleanUpAttempts && !directory_.empty(); ++attempt) {
    std::filesystem::remove_all(directory_, error);
    if (!error) break;
  }
  if (!draft.empty()) std::filesystem::remove(draft, error);
}

}  // namespace CryptCli

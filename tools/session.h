#pragma once

#include <CLI/App.hpp>
#include <cryptcli/cryptcli.hpp>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "foundation/file.h"
#include "foundation/kvmap.h"
#include "tools/connection.h"
#include "tools/exit_code.h"
#include "tools/report.h"
#include "tools/watch.h"

namespace CryptCli {

/// The command-line options that all commands with a server have.
struct SessionOptions {
  Connection connection;
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  bool noProgress = false;
  int trace = 0;
  std::string temporary;  ///< directory for temporary files; empty for TMPDIR

  void AddOptions(CLI::App& command);
};

/// How the command ends when an operation of the library has failed like that: the only such mapping.
ExitCode ToExitCode(cryptcli::Status code, bool retryable);
inline ExitCode ToExitCode(const cryptcli::Error& error) {
  return ToExitCode(error.code, error.retryable);
}

/// Reports the error, with what is known about content that was refused. Returns ToExitCode(error).
ExitCode FailWith(Report& report, const cryptcli::Error& error);

/// Runs a command that asks no server and prints its report. A signal stops the token that the work gets; the
/// result is then the code of the signal, unless the work succeeded all the same.
ExitCode RunWithoutServer(Report& report, const std::function<ExitCode(const std::stop_token& stop)>& work);

/// Everything that a command with a server does before and after the call of the library. Lives as long as
/// the command runs and owns the client, the report and the temporary directory; `options` must outlive it.
class Session {
 public:
  /// Blocks signals; from Watched() on a thread receives them.
  Session(const char* command, const SessionOptions& options);

  /// Makes the client and checks the temporary directory. Anything but Success has reported its reason.
  ExitCode Open();
  /// Runs the work, with progress on a terminal unless the label is empty. A signal cancels the calls that
  /// MakeCall() made; the result is then the code of the signal, unless the work succeeded all the same.
  ExitCode Watched(const char* label, const std::function<ExitCode()>& work);
  /// The same for work that waits for input: it shows nothing over what is typed.
  ExitCode Awaited(const std::function<ExitCode()>& work);
  /// Prints the report. Signals are still watched: a full pipe may block it for long.
  ExitCode Finish(ExitCode code);
  /// Performs a named operation. Partial has set a result and a warning, a failure its reason.
  ExitCode Perform(const std::string& operation, const OruGuiBase::KVMap& arguments,
                   OruGuiBase::KVMap& result);
  /// The same with the arguments as JSON.
  ExitCode PerformJSON(const std::string& operation, const OruGuiBase::AnsiStr& arguments,
                       OruGuiBase::KVMap& result);

  /// After Open() alone.
  const cryptcli::Client& GetClient() const { return *client_; }
  /// The call to give to each operation of the client: its progress goes to the terminal, signals cancel it.
  cryptcli::Call MakeCall();
  /// What the terminal shows. For operations that do not report progress through MakeCall().
  Progress& GetProgress() { return watch_.GetProgress(); }
  /// See Watch: for lines in between, and before content is delivered.
  void ClearProgress() { watch_.ClearLine(); }
  void HideProgress() { watch_.HideProgress(); }
  Report& GetReport() { return report_; }
  /// The system's temporary directory, before this program replaced it by its own.
  const OruGuiBase::Directory& GetTemporary() const { return temporary_; }
  ExitCode Fail(ExitCode code, const OruGuiBase::AnsiStr& errorText);
  /// For a file that the command itself cannot read or write: see Report::FailFile.
  ExitCode FailFile(const OruGuiBase::AnsiStr& errorText) {
    report_.FailFile(errorText);
    return ExitCode::Failed;
  }
  ExitCode Fail(const cryptcli::Error& error) { return FailWith(report_, error); }
  /// The exit code of what a signal has cancelled.
  ExitCode GetCancelCode() const {
    return static_cast<ExitCode>(static_cast<int>(ExitCode::Interrupted) + watch_.GetSignal());
  }
  /// Whether a signal has cancelled the work.
  bool IsCancelled() const { return watch_.IsCancelled(); }

 private:
  ExitCode OpenClient(const cryptcli::Options& options);
  ExitCode EndWatch(ExitCode code);

  const SessionOptions& options_;
  const OruGuiBase::Directory temporary_;
  // After temporary_, which it changes for everything else; before all members that may make a file.
  Watch watch_;
  Report report_;
  std::stop_source stop_;
  std::optional<cryptcli::Client> client_;
};

}  // namespace CryptCli

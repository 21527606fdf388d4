#pragma once

#include <CLI/App.hpp>
#include <functional>

#include "foundation/file.h"
#include "foundation/kvmap.h"
#include "tools/connection.h"
#include "tools/exit_code.h"
#include "tools/report.h"
#include "tools/trace_sink.h"
#include "tools/watch.h"

namespace CryptCli {

/// The command-line options that all commands with a server have.
struct SessionOptions {
  Connection connection;
  bool json = false;
  int trace = 0;

  void AddOptions(CLI::App& command);
};

/// Everything that a command with a server does before and after the call of the client. Lives as long as
/// the command runs and owns the transport, the report and the temporary directory; `options` must outlive
/// it.
class Session {
 public:
  /// Blocks signals; from Watched() on a thread receives them.
  Session(const char* command, const SessionOptions& options);

  /// Makes the transport and checks the temporary directory. Anything but Success has reported its reason.
  ExitCode Open();
  /// Runs the work, with progress on a terminal unless the label is empty.
  ExitCode Watched(const char* label, const std::function<ExitCode()>& work);
  /// Prints the report. Signals are still watched: a full pipe may block it for long.
  ExitCode Finish(ExitCode code);
  /// Performs a named operation. Partial has set a result and a warning, a failure its reason.
  ExitCode Perform(const char* operation, const OruGuiBase::KVMap& arguments, OruGuiBase::KVMap& result);

  OruKalvix::ICryptClientHttp* GetHttp() const { return http_.get(); }
  Report& GetReport() { return report_; }
  /// The system's temporary directory, before this program replaced it by its own.
  const OruGuiBase::Directory& GetTemporary() const { return temporary_; }
  ExitCode Fail(ExitCode code, const OruGuiBase::AnsiStr& errorText);

 private:
  const SessionOptions& options_;
  const OruGuiBase::Directory temporary_{OruGuiBase::DirectoryType::Temporary};
  // After temporary_, which it changes for everything else; before all members that may make a file.
  Watch watch_;
  Report report_;
  TraceSink sink_;
  OruKalvix::CryptClientCurl::Ptr http_;
};

}  // namespace CryptCli

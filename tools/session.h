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

/// What all commands that ask the services have in common on the command line.
struct SessionOptions {
  Connection connection;
  bool json = false;
  int trace = 0;

  void AddOptions(CLI::App& command);
};

/// The frame of a command that asks the services: everything around the call of the client.
class Session {
 public:
  /// From here on signals are held back until the work is watched.
  Session(const char* command, const SessionOptions& options);

  /// Makes the transport and the place for temporary files. Anything but Success comes with a reason.
  ExitCode Open();
  /// Does the work, with a sign of life on a terminal unless the label is empty.
  ExitCode Watched(const char* label, const std::function<ExitCode()>& work);
  /// Writes the report, under the watch as well: a full pipe may let it wait for long.
  ExitCode Finish(ExitCode code);
  /// Performs a named operation. Partial comes with a result and a warning, a failure with its reason.
  ExitCode Perform(const char* operation, const OruGuiBase::KVMap& arguments, OruGuiBase::KVMap& result);

  OruKalvix::ICryptClientHttp* GetHttp() const { return http_.get(); }
  Report& GetReport() { return report_; }
  /// Where temporary files lie when this program has none of its own.
  const OruGuiBase::Directory& GetTemporary() const { return temporary_; }
  ExitCode Fail(ExitCode code, const OruGuiBase::AnsiStr& errorText);

 private:
  const SessionOptions& options_;
  const OruGuiBase::Directory temporary_{OruGuiBase::DirectoryType::Temporary};
  Watch watch_;  // before everything that makes a file, and behind what it hides
  Report report_;
  TraceSink sink_;
  OruKalvix::CryptClientCurl::Ptr http_;
};

}  // namespace CryptCli

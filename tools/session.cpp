// The steps that every command with a server has in common: options, client, temporary directory, watching
// for signals, report. A command object owns its Session and calls the client in between.
#include "tools/session.h"

#include <CLI/Option.hpp>
#include <cstdlib>
#include <utility>

#include "foundation/errorstate.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "tools/origin.h"
#include "tools/trace.h"
#include "tools/value_check.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Directory;
using OruGuiBase::DirectoryType;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

// The library's way to report an audit log that is not complete: a message, and an object like an error's.
constexpr const char* kWarning = "warning";
constexpr const char* kFailure = "failure";

// The directory in which this program makes its own, for whatever makes temporary files.
Directory ChooseTemporary(const std::string& path) {
  if (!path.empty()) setenv("TMPDIR", path.c_str(), 1);
  return Directory(DirectoryType::Temporary);
}

cryptcli::Log MakeLog(int depth) {
  cryptcli::Log log;
  if (depth == 0) return log;
  log.level = depth == 1 ? cryptcli::LogLevel::Request : cryptcli::LogLevel::Debug;
  log.revealSecrets = depth > 1;
  log.write = [](cryptcli::LogLevel, std::string_view message) { WriteTrace(message); };
  return log;
}

// The result without the warning and its reason, which are members of their own in a report.
KVMap TakeWarning(const KVMap& object, AnsiStr& warning, KVMap& failure) {
  KVMap result;
  for (const auto& [name, value] : object) {
    if (name == kWarning) {
      warning = value.AsString();
    } else if (name == kFailure) {
      failure = value.AsMap();
    } else {
      result.Put(name, value);
    }
  }
  return result;
}

}  // namespace

void SessionOptions::AddOptions(CLI::App& command) {
  command.add_flag("--json", json, "Report as one JSON object, whatever happens");
  auto* const silent = command.add_flag("-q,--quiet", quiet, "Show errors alone");
  command.add_flag("-v,--verbose", verbose, "Show more about the result")->excludes(silent);
  command.add_flag("--no-progress", noProgress, "Show no progress on a terminal");
  command
      .add_option(
          "--trace", trace,
          "Show on standard error: 1 request lines and errors; 2 also the bodies of requests and responses, "
          "with the secrets in them")
      ->type_name("LEVEL")
      ->check(NumberFrom(1, 2));
  command
      .add_option("--tmp-dir", temporary,
                  "Directory for temporary files, which may hold plain content; TMPDIR by default")
      ->type_name("DIR");
  connection.AddOptions(command);
}

// Statuses with a code of their own are those on which a script acts differently. For the others it only
// matters whether the same command may succeed later.
ExitCode ToExitCode(cryptcli::Status code, bool retryable) {
  switch (code) {
    case cryptcli::Status::InvalidArgument:
      return ExitCode::Usage;
    case cryptcli::Status::OriginNotProven:
      return ExitCode::OriginNotProven;
    case cryptcli::Status::KeyRefused:
      return ExitCode::KeyRefused;
    case cryptcli::Status::Damaged:
    case cryptcli::Status::NotProtected:
      return ExitCode::BadSource;
    case cryptcli::Status::Unauthorised:
      return ExitCode::Unauthorised;
    default:
      return retryable ? ExitCode::TryLater : ExitCode::Failed;
  }
}

ExitCode FailWith(Report& report, const cryptcli::Error& error) {
  report.Fail(error);
  if (error.report) ExplainOrigin(report, *error.report);
  return ToExitCode(error);
}

ExitCode RunWithoutServer(Report& report, const std::function<ExitCode(const std::stop_token& stop)>& work) {
  Watch watch;
  watch.SetLastReport([&report](int signal) { report.FinishAtOnce(signal); });
  std::stop_source stop;
  watch.Start("", /*show=*/false, [&stop] { stop.request_stop(); });
  ExitCode code = work(stop.get_token());
  const int signal = watch.Stop();
  if (signal != 0 && code != ExitCode::Success) {
    code = static_cast<ExitCode>(static_cast<int>(ExitCode::Interrupted) + signal);
    report.Fail(DescribeSignal(signal));
  }
  // A full pipe may block the report for long.
  watch.Start("", /*show=*/false);
  if (watch.ClaimReport()) code = report.Finish(code);
  watch.Stop();
  return code;
}

Session::Session(const char* command, const SessionOptions& options)
    : options_(options), temporary_(ChooseTemporary(options.temporary)), report_(command, options.json) {
  if (options.quiet) report_.BeQuiet();
  watch_.SetLastReport([this](int signal) { report_.FinishAtOnce(signal); });
}

ExitCode Session::Fail(ExitCode code, const AnsiStr& errorText) {
  report_.Fail(errorText);
  return code;
}

// Reads files that the options name. One may be a pipe that nobody writes to. The library reads some of them,
// and cannot be stopped there: a signal then ends the program.
ExitCode Session::Open() {
  cryptcli::Options options;
  const ExitCode code = Awaited([&] {
    AnsiStr errorText;
    const bool isRead = options_.connection.GetOptions(options, stop_.get_token(), errorText);
    return isRead ? ExitCode::Success : Fail(ExitCode::Usage, errorText);
  });
  if (code != ExitCode::Success) return code;
  options.log = MakeLog(options_.trace);
  return Watched("", [&] { return OpenClient(options); });
}

ExitCode Session::OpenClient(const cryptcli::Options& options) {
  cryptcli::Result<cryptcli::Client> client = cryptcli::Client::Create(options);
  if (!client) {
    report_.Fail(client.error());
    return ExitCode::Usage;
  }
  client_ = std::move(*client);
  if (watch_.IsReady()) return ExitCode::Success;
  return Fail(ExitCode::Failed, AnsiStr("Could not create temporary directory: ") + watch_.GetReason() +
                                    " (in " + OruGuiBase::SimpleQuote(temporary_.GetPath()) + ")");
}

// Refers to the watch and to stop_: the call must not outlive the session.
cryptcli::Call Session::MakeCall() {
  cryptcli::Call call;
  call.progress = [&progress = watch_.GetProgress()](std::uint64_t done, std::uint64_t total) {
    progress.total = total;
    progress.done = done;
    return true;
  };
  call.stop = stop_.get_token();
  return call;
}

ExitCode Session::Watched(const char* label, const std::function<ExitCode()>& work) {
  // Traces and progress would overwrite each other on the terminal.
  const bool isShown = options_.trace == 0 && !options_.quiet && !options_.json && !options_.noProgress;
  const bool isCancellable = *label != '\0';
  watch_.Start(label, isShown && isCancellable,
               isCancellable ? [this] { stop_.request_stop(); } : std::function<void()>());
  return EndWatch(work());
}

ExitCode Session::Awaited(const std::function<ExitCode()>& work) {
  watch_.Start("", /*show=*/false, [this] { stop_.request_stop(); });
  return EndWatch(work());
}

// A result that was complete before the signal could take effect counts.
ExitCode Session::EndWatch(ExitCode code) {
  const int signal = watch_.Stop();
  if (signal == 0 || HasResult(code)) return code;
  return Fail(GetCancelCode(), DescribeSignal(signal));
}

ExitCode Session::Finish(ExitCode code) {
  // If a signal has come first, the watch ends the program.
  return Watched("", [&] { return watch_.ClaimReport() ? report_.Finish(code) : code; });
}

ExitCode Session::Perform(const std::string& operation, const KVMap& arguments, KVMap& result) {
  AnsiStr text;
  AnsiStr reason;
  if (!OruGuiBase::Val2JSON(Val(arguments), text, reason, /*pretty=*/false, /*strict=*/true)) {
    return Fail(ExitCode::Usage, AnsiStr("The arguments are no JSON: ") + reason);
  }
  return PerformJSON(operation, text, result);
}

ExitCode Session::PerformJSON(const std::string& operation, const AnsiStr& arguments, KVMap& result) {
  const cryptcli::Result<std::string> performed = client_->Perform(operation, arguments.View(), MakeCall());
  if (!performed) return Fail(performed.error());
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(*performed), value, reason)) {
    return Fail(ExitCode::Failed, AnsiStr("The result is no JSON: ") + reason);
  }
  AnsiStr warning;
  KVMap failure;
  result = TakeWarning(value.AsMap(), warning, failure);
  if (warning.IsEmpty()) return ExitCode::Success;
  report_.Warn(warning, failure);
  return ExitCode::Partial;
}

}  // namespace CryptCli

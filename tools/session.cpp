// The steps that every command with a server has in common: options, transport, temporary directory, watching
// for signals, report. A command object owns its Session and calls the client in between.
#include "tools/session.h"

#include <CLI/Option.hpp>
#include <CLI/Validators.hpp>

#include "client/cryptcli.h"
#include "client/result_codes.h"
#include "foundation/errorstate.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruKalvix::CryptClient;

void SessionOptions::AddOptions(CLI::App& command) {
  command.add_flag("--json", json, "Report as one JSON object");
  command
      .add_option(
          "--trace", trace,
          "Show on standard error: 1 request lines and errors; 2 also the bodies of requests and responses, "
          "with the secrets in them")
      ->type_name("LEVEL")
      ->check(CLI::Range(1, 2).description(""));
  connection.AddOptions(command);
}

Session::Session(const char* command, const SessionOptions& options)
    : options_(options), report_(command, options.json), sink_(options.trace) {}

ExitCode Session::Fail(ExitCode code, const AnsiStr& errorText) {
  report_.Fail(errorText);
  return code;
}

ExitCode Session::Open() {
  AnsiStr errorText;
  http_ = options_.connection.MakeTransport(errorText);
  if (http_ == nullptr) return Fail(ExitCode::Usage, errorText);
  if (watch_.IsReady()) return ExitCode::Success;
  return Fail(ExitCode::Failed, AnsiStr("Could not create temporary directory: ") + watch_.GetReason());
}

ExitCode Session::Watched(const char* label, const std::function<ExitCode()>& work) {
  // Traces and progress would overwrite each other on the terminal.
  watch_.Start(label, options_.trace == 0 && *label != '\0');
  const ExitCode code = work();
  watch_.Stop();
  return code;
}

ExitCode Session::Finish(ExitCode code) {
  return Watched("", [&] { return report_.Finish(code); });
}

ExitCode Session::Perform(const char* operation, const KVMap& arguments, KVMap& result) {
  Val value;
  AnsiStr errorText;
  const std::int32_t status = CryptClient::PerformOperation(
      http_.get(), AnsiStr(options_.connection.service), AnsiStr(), operation, arguments, value, errorText);
  // The user has typed the name, so an unknown one is a mistake in the command line.
  if (status == OruKalvix::kUnknownName) return Fail(ExitCode::Usage, errorText);
  if (status != OruKalvix::kSuccess) return Fail(ExitCode::Failed, errorText);
  result = value.AsMap();
  // Success with an error text: the audit log of some key servers is missing.
  if (errorText.IsEmpty()) return ExitCode::Success;
  report_.Warn(errorText);
  return ExitCode::Partial;
}

}  // namespace CryptCli

// "cryptcli audit-log": fetches the merged audit log of a group through the named operation GetAuditLog and
// delivers it to a file, by way of a staging file, or to standard output. A log without the part of some key
// servers is delivered too, with exit code 5, since an incomplete log is worth more to an auditor than none.
#include "tools/audit_log.h"

#include <CLI/Option.hpp>

#include "foundation/errorstate.h"
#include "tools/files.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::KVMap;

namespace {

bool Deliver(const AuditLogOptions& options, const File& log, StagingFile& staging, AnsiStr& errorText) {
  if (options.output.empty()) {
    if (CopyToStandardOutput(log)) return true;
    errorText = AnsiStr("Could not write to standard output: ") + OruGuiBase::GetSystemErrorText();
    return false;
  }
  if (log.Move(staging.GetFile(), /*keepTarget=*/false)) return staging.Commit(errorText);
  errorText = DescribeFailure("write", AnsiStr(options.output));
  return false;
}

ExitCode Fetch(Session& session, const AuditLogOptions& options, KVMap& result) {
  KVMap arguments;
  const ExitCode code = options.keyServers.GetArguments(session, options.session.connection.room, arguments);
  if (code != ExitCode::Success) return code;
  arguments.Set("group", AnsiStr(options.group));
  arguments.Set("groupname", AnsiStr(options.groupName));
  return session.Perform("GetAuditLog", arguments, result);
}

ExitCode Run(Session& session, const AuditLogOptions& options) {
  if (options.session.json && options.output.empty()) {
    return session.Fail(ExitCode::Usage, "--json needs --output: both would go to standard output");
  }
  ExitCode code = options.keyServers.Check(session, options.session.connection.room);
  if (code == ExitCode::Success) code = session.Open();
  if (code != ExitCode::Success) return code;
  // Before any server is asked: fetching a log takes long, and a wrong target should fail at once.
  StagingFile staging;
  AnsiStr errorText;
  if (!options.output.empty() && !staging.Open(options.output, options.force, errorText)) {
    return session.FailFile(errorText);
  }
  if (staging.IsStandardOutput()) session.GetReport().LeaveStandardOutput();
  KVMap result;
  code = session.Watched("Fetching", [&] { return Fetch(session, options, result); });
  if (!HasResult(code)) return code;
  session.GetReport().Set("complete", code == ExitCode::Success);
  // Without a label: progress would be shown in the middle of the log.
  return session.Watched("", [&] {
    const File log(result.Get("filename").AsString());
    return Deliver(options, log, staging, errorText) ? code : session.FailFile(errorText);
  });
}

void ShowResult(Report& report, const AuditLogOptions& options, ExitCode code) {
  if (options.output.empty() || !HasResult(code)) return;
  report.Line(AnsiStr("Wrote the audit log of ") + AnsiStr(options.group) + " to " +
              AnsiStr(NameTarget(options.output)) + (code == ExitCode::Partial ? " (NOT complete)" : ""));
}

}  // namespace

CLI::App* AddAuditLog(CLI::App& app, AuditLogOptions& options) {
  CLI::App* const command =
      app.add_subcommand("audit-log", "Fetch the audit log of a group from all key servers, as one CSV file");
  command->add_option("--group", options.group, "Group whose log to fetch")->type_name("GROUP")->required();
  command->add_option("--group-name", options.groupName, "Its name, for temporary files")->type_name("NAME");
  command->add_option("-o,--output", options.output, "File to write instead of standard output")
      ->type_name("FILE");
  command->add_flag("--force", options.force, "Replace that file if it exists");
  options.session.AddOptions(*command);
  options.session.connection.AddRoomOption(*command)->required(false);
  options.keyServers.AddOptions(*command);
  command->footer(DescribeExitCodes(
      {ExitCode::KeyRefused, ExitCode::Partial, ExitCode::TryLater, ExitCode::Unauthorised}));
  return command;
}

ExitCode RunAuditLog(const AuditLogOptions& options) {
  Session session("audit-log", options.session);
  Report& report = session.GetReport();
  report.Set("group", AnsiStr(options.group));
  report.Set("output", AnsiStr(options.output));
  const ExitCode code = Run(session, options);
  ShowResult(report, options, code);
  return session.Finish(code);
}

}  // namespace CryptCli

#include "tools/audit_log.h"

#include <CLI/Option.hpp>
#include <cerrno>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/format.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::KVMap;

namespace {

bool WriteToStandardOutput(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      OruGuiBase::SetLastErrorFromErrno();
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// The log passes through in chunks, however large it is.
bool CopyToStandardOutput(const File& log) {
  OruGuiBase::FileReader reader;
  if (!reader.Open(log)) return false;
  std::vector<char> chunk(OruGuiBase::kStreamBuffer);
  std::int64_t got = 0;
  while ((got = reader.Read(chunk.data(), OruGuiBase::kStreamBuffer)) > 0) {
    if (!WriteToStandardOutput({chunk.data(), static_cast<std::size_t>(got)})) return false;
  }
  return got == 0 && reader.Close();
}

bool Deliver(const AuditLogOptions& options, const File& log, StagingFile& staging, AnsiStr& errorText) {
  if (options.output.empty()) {
    if (CopyToStandardOutput(log)) return true;
    errorText = AnsiStr("Could not write to standard output: ") + OruGuiBase::GetSystemErrorText();
    return false;
  }
  if (log.Move(staging.GetFile(), false)) return staging.Commit(errorText);
  errorText = AnsiStr("Could not write ") + OruGuiBase::SimpleQuote(AnsiStr(options.output)) + ": " +
              OruGuiBase::GetSystemErrorText();
  return false;
}

KVMap Arguments(const AuditLogOptions& options) {
  KVMap arguments = options.keyServers.ToArguments();
  arguments.Set("group", AnsiStr(options.group));
  arguments.Set("groupname", AnsiStr(options.groupName));
  return arguments;
}

bool HasLog(ExitCode code) {
  return code == ExitCode::Success || code == ExitCode::Partial;
}

ExitCode Run(Session& session, const AuditLogOptions& options) {
  if (options.session.json && options.output.empty()) {
    return session.Fail(ExitCode::Usage, "--json needs --output: both would go to standard output");
  }
  ExitCode code = session.Open();
  if (code != ExitCode::Success) return code;
  StagingFile staging;
  AnsiStr errorText;
  if (!options.output.empty() && !staging.Open(options.output, options.force, errorText)) {
    return session.Fail(ExitCode::Failed, errorText);
  }
  if (staging.IsStandardOutput()) session.GetReport().LeaveStandardOutput();
  KVMap result;
  code =
      session.Watched("Fetching", [&] { return session.Perform("GetAuditLog", Arguments(options), result); });
  if (!HasLog(code)) return code;
  session.GetReport().Set("complete", code == ExitCode::Success);
  // A sign of life would stand in the middle of the log.
  return session.Watched("", [&] {
    const File log(result.Get("filename").AsString());
    return Deliver(options, log, staging, errorText) ? code : session.Fail(ExitCode::Failed, errorText);
  });
}

void ShowResult(Report& report, const AuditLogOptions& options, ExitCode code) {
  if (options.output.empty() || !HasLog(code)) return;
  report.Line(AnsiStr("Wrote the audit log of ") + AnsiStr(options.group) + " to " + AnsiStr(options.output) +
              (code == ExitCode::Partial ? " (NOT complete)" : ""));
}

}  // namespace

CLI::App* AddAuditLog(CLI::App& app, AuditLogOptions& options) {
  CLI::App* const command =
      app.add_subcommand("audit-log", "Fetch the audit log of a group from all key servers, as one CSV text");
  command->add_option("--group", options.group, "Group whose log is wanted")->type_name("GROUP")->required();
  command->add_option("--group-name", options.groupName, "Its name, for temporary files")->type_name("NAME");
  command->add_option("--output", options.output, "File to write, in place of standard output")
      ->type_name("FILE");
  command->add_flag("--force", options.force, "Replace that file if it exists");
  options.session.AddOptions(*command);
  options.keyServers.AddOptions(*command);
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

// "cryptcli call": performs any named operation with a JSON object of arguments, for scripts that administer
// keys. Arguments come from a file or standard input and never from the command line, where other users of
// the machine could read the secrets among them. No error message repeats them. The library checks them
// before it sends anything.
#include "tools/call.h"

#include <CLI/Option.hpp>
#include <stop_token>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/json.h"
#include "tools/files.h"
#include "tools/operations.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

// Numbered names to try for a fetched log; more files of one name mean that something else is wrong.
constexpr std::uint32_t kMostOfOneName = 1000;

bool ReadArguments(const std::string& source, const std::stop_token& stop, AnsiStr& arguments,
                   AnsiStr& errorText) {
  AnsiStr reason;
  const bool isRead = source == kStandardStream ? ReadToEnd(STDIN_FILENO, stop, arguments, reason)
                                                : ReadUnlessStopped(source, stop, arguments, reason);
  if (isRead) return true;
  errorText = DescribeFailure("read", AnsiStr(source), reason);
  return false;
}

// GetAuditLog is the one operation whose result is a file. It is among the temporary files of this process,
// which are deleted at its end, so it moves to the system's temporary directory.
bool KeepLog(const OruGuiBase::Directory& place, KVMap& result, AnsiStr& errorText) {
  const AnsiStr path = result.Get("filename").AsString();
  const File log(path);
  File kept(place, log.GetTail());
  bool isMoved = log.Move(kept, /*keepTarget=*/true);
  // Another process may have fetched a log of this name.
  for (std::uint32_t i = 2; i <= kMostOfOneName && !isMoved && OruGuiBase::GetLastError() == EEXIST; ++i) {
    kept = File(place, log.GetTail()).GetNumbered(i);
    isMoved = log.Move(kept, /*keepTarget=*/true);
  }
  if (isMoved) return result.Set("filename", ToUTF8(kept.GetPath()));
  errorText = DescribeFailure("write", kept.GetPath());
  return false;
}

ExitCode Call(Session& session, const CallOptions& options, const AnsiStr& arguments) {
  const std::string unknown = CheckArgumentNames(options.operation, arguments);
  if (!unknown.empty()) return session.Fail(ExitCode::Usage, AnsiStr(unknown));
  ExitCode code = session.Open();
  if (code != ExitCode::Success) return code;
  KVMap result;
  code =
      session.Watched("Calling", [&] { return session.PerformJSON(options.operation, arguments, result); });
  if (!HasResult(code)) return code;
  AnsiStr errorText;
  if (result.Contains("filename") && !KeepLog(session.GetTemporary(), result, errorText)) {
    return session.FailFile(errorText);
  }
  AnsiStr text;
  if (!OruGuiBase::Val2JSON(Val(result), text, errorText, /*pretty=*/false, /*strict=*/true)) {
    return session.Fail(ExitCode::Failed, AnsiStr("The result is no JSON: ") + errorText);
  }
  session.GetReport().Bytes((text + "\n").View());
  session.GetReport().Set("result", result);
  return code;
}

}  // namespace

CLI::App* AddCall(CLI::App& app, CallOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "call", "Perform a named operation: a JSON object of arguments in, a JSON object of results out");
  command
      ->add_option("OPERATION", options.operation, "Name of the operation, with or without the prefix Crypt")
      ->required();
  command->add_option("--args", options.arguments, "File with the arguments; - for standard input")
      ->type_name("FILE")
      ->required();
  options.session.AddOptions(*command);
  command->footer(DescribeExitCodes({ExitCode::Partial, ExitCode::TryLater, ExitCode::Unauthorised}));
  return command;
}

ExitCode RunCall(const CallOptions& options) {
  Session session("call", options.session);
  session.GetReport().Set("name", AnsiStr(options.operation));
  // Before the arguments, which somebody may have to type.
  const std::string unknown = CheckOperation(options.operation);
  if (!unknown.empty()) return session.Finish(session.Fail(ExitCode::Usage, AnsiStr(unknown)));
  AnsiStr arguments;
  const ExitCode code = session.Awaited([&] {
    AnsiStr errorText;
    const bool isRead = ReadArguments(options.arguments, session.MakeCall().stop, arguments, errorText);
    return isRead ? ExitCode::Success : session.Fail(ExitCode::Usage, errorText);
  });
  return session.Finish(code == ExitCode::Success ? Call(session, options, arguments) : code);
}

}  // namespace CryptCli

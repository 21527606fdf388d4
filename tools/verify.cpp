// "cryptcli verify" and "cryptcli rekey": what opens protected files without delivering their content. Both
// take any number of files. With one file the report is about that file; with several, bulk.cpp has an entry
// for each.
#include "tools/verify.h"

#include <CLI/Option.hpp>
#include <algorithm>
#include <functional>

#include "tools/files.h"
#include "tools/origin.h"
#include "tools/protect.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;

namespace {

using Operation = std::function<cryptcli::Result<cryptcli::Report>(
    const cryptcli::Client& client, const std::string& file, const cryptcli::Call& call)>;

void AddCommonOptions(CLI::App& command, VerifyOptions& options, const char* files) {
  command.add_option("FILE", options.files, files);
  options.origin.AddOptions(command);
  options.bulk.AddOptions(command, /*onlyProtected=*/true);
  options.session.AddOptions(command);
  options.session.connection.AddRoomOption(command);
  command.footer(DescribeExitCodes({ExitCode::OriginNotProven, ExitCode::KeyRefused, ExitCode::TryLater,
                                    ExitCode::BadSource, ExitCode::Unauthorised}));
}

/// What the two commands are called in reports and on the terminal; literals.
struct Names {
  const char* operation;
  const char* label;
  const char* done;
};

ExitCode RunOne(const Names& names, const VerifyOptions& options, const Operation& operation) {
  Session session(names.operation, options.session);
  Report& report = session.GetReport();
  const std::string& file = options.files.front();
  const auto work = [&] {
    report.Set("file", AnsiStr(file));
    // The library knows descriptor 0 and not what it stands for here.
    if (file == kStandardStream && !CanReadStandardInput()) {
      return session.FailFile(DescribeFailure("read", AnsiStr(file)));
    }
    cryptcli::Call call = session.MakeCall();
    options.origin.Apply(call);
    const cryptcli::Result<cryptcli::Report> found = operation(session.GetClient(), file, call);
    if (!found) {
      const ExitCode code = FailWith(report, found.error());
      // The message may be about a server as well; in JSON the file is a member.
      if (!options.session.json) report.Fail(AnsiStr(NameSource(file) + ": " + found.error().message));
      return code;
    }
    report.SetAll(found->json);
    report.Line(AnsiStr(names.done) + " " + AnsiStr(NameSource(file)) + " (" +
                NameOrigin(found->origin.value_or(cryptcli::Origin::Unsigned)) + ")");
    ShowOrigin(report, *found, options.session.verbose);
    return ExitCode::Success;
  };
  const ExitCode code = session.Open();
  return session.Finish(code == ExitCode::Success ? session.Watched(names.label, work) : code);
}

ExitCode Refuse(const Names& names, const VerifyOptions& options, const std::string& reason) {
  Session session(names.operation, options.session);
  return session.Finish(session.Fail(ExitCode::Usage, AnsiStr(reason)));
}

ExitCode Run(const Names& names, const VerifyOptions& options, const Operation& operation) {
  if (options.files.size() == 1 && !options.bulk.IsGiven()) {
    const std::string& file = options.files.front();
    if (file != kStandardStream && IsFolder(file))
      return Refuse(names, options, file + " is a folder: --recursive takes the files below it");
    return RunOne(names, options, operation);
  }
  BulkWork work;
  work.operation = names.operation;
  work.label = names.label;
  work.done = names.done;
  work.onlyProtected = true;
  work.perform = [&](const cryptcli::Client& client, const std::string& source, const std::string&,
                     const cryptcli::Call& common) {
    cryptcli::Call call = common;
    options.origin.Apply(call);
    return operation(client, source, call);
  };
  return RunBulk(work, options.files, options.bulk, options.session);
}

}  // namespace

CLI::App* AddVerify(CLI::App& app, VerifyOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "verify", "Check that protected files are whole and where their content comes from; writes nothing");
  AddCommonOptions(*command, options, "Protected files; - for standard input");
  return command;
}

CLI::App* AddRekey(CLI::App& app, VerifyOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "rekey", "Open protected files and protect their content again with the room's present key, in place");
  AddCommonOptions(*command, options, "Protected files; each is the old or the new one at any moment");
  return command;
}

ExitCode RunVerify(const VerifyOptions& options) {
  return Run({"verify", "Verifying", "Verified"}, options,
             [&](const cryptcli::Client& client, const std::string& file, const cryptcli::Call& call) {
               return client.Verify(options.session.connection.room, GetSource(file), call);
             });
}

ExitCode RunRekey(const VerifyOptions& options) {
  constexpr Names kNames{"rekey", "Protecting", "Protected"};
  const auto& files = options.files;
  if (std::find(files.begin(), files.end(), kStandardStream) != files.end()) {
    return Refuse(kNames, options, "Standard input cannot be replaced in place");
  }
  return Run(kNames, options,
             [&](const cryptcli::Client& client, const std::string& file, const cryptcli::Call& call) {
               return client.Rekey(options.session.connection.room, file, call);
             });
}

}  // namespace CryptCli

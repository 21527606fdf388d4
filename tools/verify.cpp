// "cryptcli verify" and "cryptcli rekey": what opens protected files without delivering their content. Both
// take any number of files. With one file the report is about that file; with several, it has an entry for
// each.
#include "tools/verify.h"

#include <CLI/Option.hpp>
#include <functional>

#include "foundation/array.h"
#include "tools/origin.h"
#include "tools/protect.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

using Operation = std::function<cryptcli::Result<cryptcli::Report>(
    const cryptcli::Client& client, const std::string& file, const cryptcli::Call& call)>;

void AddCommonOptions(CLI::App& command, VerifyOptions& options, const char* files) {
  command.add_option("FILE", options.files, files)->required();
  AddAcceptOption(command, options.accept);
  options.session.AddOptions(command);
  options.session.connection.AddRoomOption(command);
  command.footer(DescribeExitCodes({ExitCode::OriginNotProven, ExitCode::KeyRefused, ExitCode::TryLater,
                                    ExitCode::BadSource, ExitCode::Unauthorised}));
}

/// One run of either command. Lives on the stack of RunVerify or RunRekey; `options` must outlive it.
class Run {
 public:
  Run(const char* operation, const char* done, const VerifyOptions& options)
      : operation_(operation), done_(done), options_(options), session_(operation, options.session) {}

  ExitCode Refuse(const char* reason) { return session_.Finish(session_.Fail(ExitCode::Usage, reason)); }

  ExitCode Finish(const char* label, const Operation& operation) {
    ExitCode code = session_.Open();
    if (code == ExitCode::Success) code = DoAll(label, operation);
    return session_.Finish(code);
  }

 private:
  ExitCode DoAll(const std::string& label, const Operation& operation) {
    const std::size_t count = options_.files.size();
    if (count == 1) return Watch(label, operation, options_.files.front(), session_.GetReport());
    ExitCode result = ExitCode::Success;
    Array<Val> entries;
    std::size_t failures = 0;
    for (std::size_t i = 0; i < count && result < ExitCode::Interrupted; ++i) {
      Report report(operation_, options_.session.json);
      if (options_.session.quiet) report.BeQuiet();
      const std::string place = " " + std::to_string(i + 1) + " of " + std::to_string(count);
      const ExitCode code = Watch(label + place, operation, options_.files[i], report);
      if (code != ExitCode::Success) ++failures;
      if (result == ExitCode::Success || code > ExitCode::Interrupted) result = code;
      if (options_.session.json) {
        entries.Append(Val(report.ToMap(code)));
      } else {
        report.Finish(code);
      }
    }
    if (options_.session.json) session_.GetReport().Set("files", entries);
    const bool isInterrupted = result > ExitCode::Interrupted;
    if (failures > 0 && !isInterrupted) session_.GetReport().Fail(Count(failures));
    return result;
  }

  // Each file on its own, so that the progress on a terminal is that of the file.
  ExitCode Watch(const std::string& label, const Operation& operation, const std::string& file,
                 Report& report) {
    return session_.Watched(label.c_str(), [&] { return DoOne(operation, file, report); });
  }

  AnsiStr Count(std::size_t failures) const {
    return AnsiStr(std::to_string(failures) + " of " + std::to_string(options_.files.size()) +
                   " files failed");
  }

  ExitCode DoOne(const Operation& operation, const std::string& file, Report& report) {
    report.Set("file", AnsiStr(file));
    cryptcli::Call call = session_.MakeCall();
    call.accept = GetPolicy(options_.accept);
    const cryptcli::Result<cryptcli::Report> found = operation(session_.GetClient(), file, call);
    if (!found) return FailOne(file, report, found.error());
    report.SetAll(found->json);
    report.Line(AnsiStr(done_) + " " + AnsiStr(file) + " (" +
                NameOrigin(found->origin.value_or(cryptcli::Origin::Unsigned)) + ")");
    ShowOrigin(report, *found, options_.session.verbose);
    return ExitCode::Success;
  }

  // For people, one message among many says which file it is about.
  ExitCode FailOne(const std::string& file, Report& report, const cryptcli::Error& error) const {
    const ExitCode code = FailWith(report, error);
    if (options_.files.size() > 1 && !options_.session.json)
      report.Fail(AnsiStr(file + ": " + error.message));
    return code;
  }

  const char* operation_;
  const char* done_;
  const VerifyOptions& options_;
  Session session_;
};

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
  return Run("verify", "Verified", options)
      .Finish("Verifying",
              [&](const cryptcli::Client& client, const std::string& file, const cryptcli::Call& call) {
                return client.Verify(options.session.connection.room, GetSource(file), call);
              });
}

ExitCode RunRekey(const VerifyOptions& options) {
  Run run("rekey", "Protected", options);
  for (const std::string& file : options.files) {
    if (file == kStandardStream) return run.Refuse("Standard input cannot be replaced in place");
  }
  return run.Finish("Protecting",
                    [&](const cryptcli::Client& client, const std::string& file, const cryptcli::Call& call) {
                      return client.Rekey(options.session.connection.room, file, call);
                    });
}

}  // namespace CryptCli

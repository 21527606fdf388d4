#include "tools/protect.h"

#include <CLI/Option.hpp>
#include <CLI/Validators.hpp>
#include <functional>

#include "client/cryptcli.h"
#include "foundation/errorstate.h"
#include "tools/draft.h"
#include "tools/report.h"
#include "tools/tracesink.h"
#include "tools/watch.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruKalvix::CryptClient;

namespace {

void AddCommonOptions(CLI::App& command, ProtectOptions& options) {
  command.add_option("SOURCE", options.source, "File to read")->required();
  command.add_option("TARGET", options.target, "File to write")->required();
  command.add_flag("--force", options.force, "Replace TARGET if it exists");
  command.add_flag("--json", options.json, "Report as one JSON object");
  command
      .add_option(
          "--trace", options.trace,
          "Show on standard error: 1 request lines and errors; 2 also the bodies of requests and answers, "
          "with the secrets in them")
      ->type_name("LEVEL")
      ->check(CLI::Range(1, 2).description(""));
  options.connection.AddOptions(command);
}

/// The frame of both operations: everything around the call of the client.
class Run {
 public:
  Run(const char* operation, const ProtectOptions& options)
      : options_(options), report_(operation, options.json), sink_(options.trace) {
    report_.Set("source", AnsiStr(options.source));
    report_.Set("target", AnsiStr(options.target));
  }

  using Work = std::function<ExitCode(CryptClient& client, const File& source, const File& target)>;

  ExitCode Do(const char* label, const Work& work) {
    AnsiStr errorText;
    const auto http = options_.connection.MakeTransport(errorText);
    if (http == nullptr) return Fail(ExitCode::Usage, errorText);
    if (!watch_.IsReady()) {
      OruGuiBase::SetLastErrorFromErrno();
      return Fail(ExitCode::Failed,
                  AnsiStr("Could not create temporary directory: ") + OruGuiBase::GetSystemErrorText());
    }
    if (!draft_.Open(options_.source, options_.target, options_.force, errorText)) {
      return Fail(ExitCode::Failed, errorText);
    }
    const Connection& connection = options_.connection;
    CryptClient client(http.get(), AnsiStr(connection.service), AnsiStr(), AnsiStr(connection.room));
    // Traces and the sign of life would write over each other.
    watch_.Start(label, draft_.GetPath(), options_.trace == 0);
    const ExitCode code = work(client, File(AnsiStr(options_.source)), draft_.GetFile());
    watch_.Stop();
    return code;
  }

  Report& GetReport() { return report_; }
  ExitCode Fail(ExitCode code, const AnsiStr& errorText) {
    report_.Fail(errorText);
    return code;
  }
  ExitCode Deliver() {
    AnsiStr errorText;
    return draft_.Commit(errorText) ? ExitCode::Success : Fail(ExitCode::Failed, errorText);
  }

 private:
  const ProtectOptions& options_;
  Watch watch_;  // before everything that makes a file
  Report report_;
  TraceSink sink_;
  Draft draft_;
};

const char* DescribeOrigin(bool isSigned, bool isVerified) {
  if (isVerified) return "origin verified";
  return isSigned ? "signed, origin NOT verified" : "not signed, origin unknown";
}

}  // namespace

CLI::App* AddEncrypt(CLI::App& app, ProtectOptions& options) {
  CLI::App* const command = app.add_subcommand("encrypt", "Protect SOURCE for a room and write it to TARGET");
  AddCommonOptions(*command, options);
  return command;
}

CLI::App* AddDecrypt(CLI::App& app, ProtectOptions& options) {
  CLI::App* const command = app.add_subcommand("decrypt", "Open the protected file SOURCE and write TARGET");
  AddCommonOptions(*command, options);
  command->add_flag("--require-verified", options.requireVerified,
                    "Write TARGET only when the origin of the content is proven");
  return command;
}

ExitCode RunEncrypt(const ProtectOptions& options) {
  Run run("encrypt", options);
  const ExitCode code =
      run.Do("Encrypting", [&](CryptClient& client, const File& source, const File& target) {
        bool isKeyRefused = false;
        if (client.Encrypt(source, target, isKeyRefused)) return run.Deliver();
        run.GetReport().Set("keyRefused", isKeyRefused);
        return run.Fail(isKeyRefused ? ExitCode::KeyRefused : ExitCode::Failed, client.GetErrorMessage());
      });
  if (code == ExitCode::Success) {
    run.GetReport().Line(AnsiStr("Encrypted ") + AnsiStr(options.source) + " to " + AnsiStr(options.target));
  }
  return run.GetReport().Finish(code);
}

ExitCode RunDecrypt(const ProtectOptions& options) {
  Run run("decrypt", options);
  Report& report = run.GetReport();
  bool isSigned = false;
  bool isVerified = false;
  const ExitCode code =
      run.Do("Decrypting", [&](CryptClient& client, const File& source, const File& target) {
        if (!client.Decrypt(source, target, isSigned, isVerified)) {
          return run.Fail(ExitCode::Failed, client.GetErrorMessage());
        }
        const AnsiStr reason = isSigned ? client.GetErrorMessage() : AnsiStr("The content is not signed");
        if (!isVerified && options.requireVerified) return run.Fail(ExitCode::NotVerified, reason);
        if (!isVerified) report.Warn(AnsiStr("The origin of the content is not proven: ") + reason);
        return run.Deliver();
      });
  report.Set("isSigned", isSigned);
  report.Set("isVerified", isVerified);
  if (code == ExitCode::Success) {
    report.Line(AnsiStr("Decrypted ") + AnsiStr(options.source) + " to " + AnsiStr(options.target) + " (" +
                DescribeOrigin(isSigned, isVerified) + ")");
  }
  return report.Finish(code);
}

}  // namespace CryptCli

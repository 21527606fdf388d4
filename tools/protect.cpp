// "cryptcli encrypt" and "cryptcli decrypt". Both write to a staging file, so that a failure, a signal, or a
// decrypted file whose origin was to be proven and is not, leaves the target as it was.
#include "tools/protect.h"

#include <CLI/Option.hpp>
#include <functional>

#include "client/cryptcli.h"
#include "tools/files.h"
#include "tools/source.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruKalvix::CryptClient;

namespace {

void AddCommonOptions(CLI::App& command, ProtectOptions& options) {
  command.add_option("SOURCE", options.source, "File to read")->required();
  command.add_option("TARGET", options.target, "File to write")->required();
  command.add_flag("--force", options.force, "Replace TARGET if it exists");
  options.session.AddOptions(command);
  options.session.connection.AddRoomOption(command);
}

/// What both operations do before and after the call of the client: report, session, staging file. Lives on
/// the stack of RunEncrypt or RunDecrypt; `options` must outlive it.
class Run {
 public:
  Run(const char* operation, const ProtectOptions& options)
      : options_(options), session_(operation, options.session) {
    GetReport().Set("source", AnsiStr(options.source));
    GetReport().Set("target", AnsiStr(options.target));
  }

  using Work = std::function<ExitCode(CryptClient& client, const File& source, const File& target)>;

  ExitCode Do(const char* label, const Work& work) {
    const ExitCode code = session_.Open();
    if (code != ExitCode::Success) return code;
    AnsiStr errorText;
    if (!staging_.Open(options_.source, options_.target, options_.force, errorText)) {
      return Fail(ExitCode::Failed, errorText);
    }
    if (staging_.IsStandardOutput()) GetReport().LeaveStandardOutput();
    const Connection& connection = options_.session.connection;
    CryptClient client(session_.GetHttp(), AnsiStr(connection.service), AnsiStr(), AnsiStr(connection.room));
    return session_.Watched(label,
                            [&] { return work(client, File(AnsiStr(options_.source)), staging_.GetFile()); });
  }

  ExitCode Finish(ExitCode code) { return session_.Finish(code); }
  Report& GetReport() { return session_.GetReport(); }
  ExitCode Fail(ExitCode code, const AnsiStr& errorText) { return session_.Fail(code, errorText); }
  ExitCode Deliver() {
    AnsiStr errorText;
    return staging_.Commit(errorText) ? ExitCode::Success : Fail(ExitCode::Failed, errorText);
  }

 private:
  const ProtectOptions& options_;
  Session session_;  // first: it sets the temporary directory of everything that makes a file
  StagingFile staging_;
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
  return run.Finish(code);
}

ExitCode RunDecrypt(const ProtectOptions& options) {
  Run run("decrypt", options);
  Report& report = run.GetReport();
  bool isSigned = false;
  bool isVerified = false;
  const ExitCode code =
      run.Do("Decrypting", [&](CryptClient& client, const File& source, const File& target) {
        // Inside the watched work: reading a FIFO may block for long, and a signal must still end the
        // command.
        Source file;
        if (!file.Open(options.source)) {
          return run.Fail(ExitCode::Failed, DescribeFailure("read", source.GetPath()));
        }
        if (!client.Decrypt(file.GetFile(), target, isSigned, isVerified)) {
          return run.Fail(ExitCode::Failed, client.GetErrorMessage());
        }
        const AnsiStr reason = isSigned ? client.GetErrorMessage() : AnsiStr("The content is not signed");
        if (!isVerified && options.requireVerified) return run.Fail(ExitCode::OriginNotProven, reason);
        if (!isVerified) report.Warn(AnsiStr("The origin of the content is not proven: ") + reason);
        return run.Deliver();
      });
  report.Set("isSigned", isSigned);
  report.Set("isVerified", isVerified);
  if (code == ExitCode::Success) {
    report.Line(AnsiStr("Decrypted ") + AnsiStr(options.source) + " to " + AnsiStr(options.target) + " (" +
                DescribeOrigin(isSigned, isVerified) + ")");
  }
  return run.Finish(code);
}

}  // namespace CryptCli

// "cryptcli encrypt" and "cryptcli decrypt". Both write to a staging file, so that a failure, a signal, or a
// protected file whose origin is not proven, leaves the target as it was.
#include "tools/protect.h"

#include <CLI/Option.hpp>
#include <CLI/Validators.hpp>
#include <cstdlib>
#include <functional>
#include <unistd.h>

#include "tools/files.h"
#include "tools/origin.h"
#include "tools/staging_file.h"
#include "tools/value_check.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;

namespace {

void AddCommonOptions(CLI::App& command, ProtectOptions& options, bool onlyProtected) {
  command.add_option("FILE", options.files, "SOURCE and TARGET; - for standard input and output")
      ->type_name("SOURCE [TARGET]");
  options.target.AddOptions(command);
  options.bulk.AddOptions(command, onlyProtected);
  options.bulk.AddTargetOptions(command);
  options.session.AddOptions(command);
  options.session.connection.AddRoomOption(command);
}

/// What both operations do before and after the call of the client: report, session, staging file. Lives on
/// the stack of RunEncrypt or RunDecrypt; `options` must outlive it.
class Run {
 public:
  Run(const char* operation, const ProtectOptions& options)
      : options_(options), session_(operation, options.session) {
    // No thread runs yet: the first one comes with the first work of the session.
    if (const auto mode = options.target.GetMode()) RestrictNewFiles(*mode);
  }

  using Operation = std::function<cryptcli::Result<cryptcli::Report>(
      const cryptcli::Client& client, const cryptcli::Source& source, const cryptcli::Target& target)>;

  ExitCode Do(const char* label, const Operation& operation) {
    if (!FindTarget()) {
      return session_.Fail(ExitCode::Usage,
                           "Name a SOURCE and a TARGET, the latter as a second file or with --output");
    }
    // Before anything can fail: whoever reads the content must not get a report in its place.
    if (target_ == kStandardStream) GetReport().LeaveStandardOutput();
    GetReport().Set("source", AnsiStr(GetSourceName()));
    GetReport().Set("target", AnsiStr(target_));
    const ExitCode code = session_.Open();
    if (code != ExitCode::Success) return code;
    AnsiStr errorText;
    staging_.SetMode(options_.target.GetMode());
    if (!staging_.Open(GetSourceName(), target_, options_.target.force, errorText)) {
      return session_.FailFile(errorText);
    }
    // The target may be standard output under another name, such as "/dev/stdout"; Open() finds that out.
    if (staging_.IsStandardOutput()) GetReport().LeaveStandardOutput();
    return session_.Watched(label, [&] { return Perform(operation); });
  }

  ExitCode Finish(ExitCode code) { return session_.Finish(code); }
  Report& GetReport() { return session_.GetReport(); }
  Session& GetSession() { return session_; }
  const std::string& GetSourceName() const { return options_.files.front(); }
  std::string DescribeEnds() const { return NameSource(GetSourceName()) + " to " + NameTarget(target_); }
  const cryptcli::Report& GetFound() const { return found_; }

 private:
  bool FindTarget() {
    const bool isNamed = !options_.target.output.empty();
    if (options_.files.size() != (isNamed ? 1U : 2U)) return false;
    target_ = isNamed ? options_.target.output : options_.files.back();
    return true;
  }

  // The library writes to the staging file. Only a success, with the origin that was asked for, gets here to
  // Commit; everything else leaves the target untouched.
  ExitCode Perform(const Operation& operation) {
    const cryptcli::Result<cryptcli::Report> done =
        operation(session_.GetClient(), GetSource(GetSourceName()), staging_.GetPath());
    if (!done) return session_.Fail(done.error());
    found_ = *done;
    GetReport().SetAll(found_.json);
    session_.HideProgress();
    AnsiStr errorText;
    return staging_.Commit(errorText) ? ExitCode::Success : session_.FailFile(errorText);
  }

  const ProtectOptions& options_;
  // Before the staging file: it sets the temporary directory of everything that makes a file.
  Session session_;
  StagingFile staging_;
  std::string target_;
  cryptcli::Report found_;
};

BulkWork MakeWork(const char* operation, const ProtectOptions& options) {
  BulkWork work;
  work.operation = operation;
  work.force = options.target.force;
  work.mode = options.target.GetMode();
  return work;
}

ExitCode EncryptMany(const ProtectOptions& options) {
  BulkWork work = MakeWork("encrypt", options);
  work.label = "Encrypting";
  work.done = "Encrypted";
  work.targetNames = NameRule::AddSuffix;
  work.perform = [&options](const cryptcli::Client& client, const std::string& source,
                            const std::string& target, const cryptcli::Call& common) {
    cryptcli::Call call = common;
    call.expectedRoom = options.origin.expectedRoom;
    return client.Encrypt(options.session.connection.room, source, target, call);
  };
  return RunBulk(work, options.files, options.bulk, options.session);
}

// As EncryptMany, with the accepted origin: it is checked for each file by itself.
ExitCode DecryptMany(const ProtectOptions& options) {
  BulkWork work = MakeWork("decrypt", options);
  work.label = "Decrypting";
  work.done = "Decrypted";
  work.targetNames = NameRule::RemoveSuffix;
  work.onlyProtected = true;
  work.perform = [&options](const cryptcli::Client& client, const std::string& source,
                            const std::string& target, const cryptcli::Call& common) {
    cryptcli::Call call = common;
    options.origin.Apply(call);
    return client.Decrypt(options.session.connection.room, source, target, call);
  };
  return RunBulk(work, options.files, options.bulk, options.session);
}

}  // namespace

void TargetOptions::AddOptions(CLI::App& command) {
  command.add_option("-o,--output", output, "File to write; - for standard output")->type_name("TARGET");
  command.add_option("--mode", mode, "Permissions of the written file, octal: 600")
      ->type_name("MODE")
      ->check(CLI::Validator(
          [](std::string& text) {
            const bool isOctal = text.size() == 3 || (text.size() == 4 && text.front() == '0');
            const bool isMode = isOctal && text.find_first_not_of("01234567") == std::string::npos;
            return isMode ? std::string() : "three octal digits are needed, such as 600";
          },
          ""));
  command.add_flag("--force", force, "Replace the written file if it exists");
}

// The check of the option has accepted octal digits only.
std::optional<unsigned> TargetOptions::GetMode() const {
  if (mode.empty()) return std::nullopt;
  return static_cast<unsigned>(std::strtoul(mode.c_str(), nullptr, 8));
}

CLI::Option* AcceptOptions::AddOptions(CLI::App& command) {
  AddExpectedRoom(command,
                  "Room that the file has to be signed for, as the crypt service spells it; otherwise any "
                  "room that the crypt service names");
  return command
      .add_option("--accept", accept,
                  "Weakest origin to accept: proven, any-signer (signed for another room or group, too), "
                  "signature-only (signed by anybody, too), anything (not signed, too)")
      ->type_name("ORIGIN")
      ->check(OneOf({"proven", "any-signer", "signature-only", "anything"}))
      ->capture_default_str();
}

void AcceptOptions::AddExpectedRoom(CLI::App& command, const char* help) {
  command.add_option("--expected-room", expectedRoom, help)
      ->type_name("ROOM")
      ->check(NotEmpty("the expected room"));
}

// The option accepts these words alone, so whatever is none of the first three is "proven": a mistake here
// could only be too strict.
void AcceptOptions::Apply(cryptcli::Call& call) const {
  call.accept = accept == "any-signer"       ? cryptcli::Policy::AnySigner
                : accept == "signature-only" ? cryptcli::Policy::SignatureOnly
                : accept == "anything"       ? cryptcli::Policy::Anything
                                             : cryptcli::Policy::Proven;
  call.expectedRoom = expectedRoom;
}

cryptcli::Source GetSource(const std::string& name) {
  if (name == kStandardStream) return cryptcli::Source::FromDescriptor(STDIN_FILENO);
  return name;
}

CLI::App* AddEncrypt(CLI::App& app, ProtectOptions& options) {
  CLI::App* const command = app.add_subcommand("encrypt", "Protect SOURCE for a room and write it to TARGET");
  AddCommonOptions(*command, options, /*onlyProtected=*/false);
  options.origin.AddExpectedRoom(*command,
                                 "Room that the crypt service has to name for the file, as it spells it; "
                                 "otherwise any room that it names");
  command->footer(DescribeExitCodes(
      {ExitCode::OriginNotProven, ExitCode::KeyRefused, ExitCode::TryLater, ExitCode::Unauthorised}));
  return command;
}

CLI::App* AddDecrypt(CLI::App& app, ProtectOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "decrypt", "Open the protected file SOURCE and write TARGET, if the origin of the content is proven");
  AddCommonOptions(*command, options, /*onlyProtected=*/true);
  CLI::Option* const accept = options.origin.AddOptions(*command);
  // Does nothing: it asks for what has become the default. Scripts still pass it.
  command
      ->add_flag_callback(
          "--require-verified", [] {}, "The same as --accept proven")
      ->excludes(accept);
  command->footer(DescribeExitCodes({ExitCode::OriginNotProven, ExitCode::KeyRefused, ExitCode::TryLater,
                                     ExitCode::BadSource, ExitCode::Unauthorised}));
  return command;
}

ExitCode RunEncrypt(const ProtectOptions& options) {
  if (options.bulk.IsGiven()) return EncryptMany(options);
  Run run("encrypt", options);
  const ExitCode code = run.Do(
      "Encrypting",
      [&](const cryptcli::Client& client, const cryptcli::Source& source, const cryptcli::Target& target) {
        cryptcli::Call call = run.GetSession().MakeCall();
        call.expectedRoom = options.origin.expectedRoom;
        return client.Encrypt(options.session.connection.room, source, target, call);
      });
  if (code == ExitCode::KeyRefused) run.GetReport().Set("keyRefused", true);
  if (code == ExitCode::Success) {
    run.GetReport().Line(AnsiStr("Encrypted " + run.DescribeEnds()));
    if (options.session.verbose) ShowRoom(run.GetReport(), run.GetFound());
  }
  return run.Finish(code);
}

ExitCode RunDecrypt(const ProtectOptions& options) {
  if (options.bulk.IsGiven()) return DecryptMany(options);
  Run run("decrypt", options);
  const ExitCode code = run.Do(
      "Decrypting",
      [&](const cryptcli::Client& client, const cryptcli::Source& source, const cryptcli::Target& target) {
        cryptcli::Call call = run.GetSession().MakeCall();
        options.origin.Apply(call);
        return client.Decrypt(options.session.connection.room, source, target, call);
      });
  if (code == ExitCode::Success) {
    const cryptcli::Origin origin = run.GetFound().origin.value_or(cryptcli::Origin::Unsigned);
    run.GetReport().Line(AnsiStr("Decrypted " + run.DescribeEnds() + " (" + NameOrigin(origin) + ")"));
    ShowOrigin(run.GetReport(), run.GetFound(), options.session.verbose);
  }
  return run.Finish(code);
}

}  // namespace CryptCli

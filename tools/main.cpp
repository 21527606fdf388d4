// The program cryptcli: one subcommand for each job. Each subcommand adds its own options and is run by its
// own source; only the exit codes, which scripts rely on, and the help about them are common.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "tools/apply_settings.h"
#include "tools/audit_log.h"
#include "tools/call.h"
#include "tools/config_command.h"
#include "tools/exit_code.h"
#include "tools/inspect.h"
#include "tools/operations.h"
#include "tools/protect.h"
#include "tools/report.h"
#include "tools/servers_command.h"
#include "tools/sign.h"
#include "tools/usage.h"
#include "tools/value_check.h"
#include "tools/verify.h"
#include "tools/version.h"

namespace {

using CryptCli::ExitCode;

constexpr const char* kNotes =
    "SOURCE or TARGET - is standard input or output; a file of that name is ./-. A TARGET that cannot be\n"
    "replaced (a device, somebody else's file) is written in place once the operation has "
    "succeeded;\n"
    "if writing fails, a part may be there.\n"
    "Results go to standard output, errors and warnings to standard error; with standard output as TARGET\n"
    "all but the content goes to standard error. The environment variable TMPDIR names the directory for\n"
    "temporary files; the C library and OpenSSL read variables of their own, such as TZ and "
    "OPENSSL_CONF.\n\n";

struct Options {
  CryptCli::ProtectOptions encrypt;
  CryptCli::ProtectOptions decrypt;
  CryptCli::VerifyOptions verify;
  CryptCli::VerifyOptions rekey;
  CryptCli::SignOptions sign;
  CryptCli::AuditLogOptions auditLog;
  CryptCli::CallOptions call;
  CryptCli::OperationsOptions operations;
  CryptCli::InspectOptions inspect;
  CryptCli::ServersOptions room;
  CryptCli::ServersOptions doctor;
  CryptCli::ConfigOptions config;
};

struct Command {
  CLI::App* app;
  std::function<ExitCode()> run;
};

// Only a lack of resources, such as memory, can raise an exception here.
int FailUnexpected(const char* text, bool asJSON) {
  CryptCli::Report report("", asJSON);
  report.Fail(cryptcli::Failure(cryptcli::Status::Internal, text).error());
  return static_cast<int>(report.Finish(ExitCode::Failed));
}

// What --help and --version print. A script that keeps it must not take a part of it for the whole.
int Show(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream text;
  app.exit(error, text, text);
  CryptCli::Report report("", /*asJSON=*/false);
  report.Bytes(text.str());
  return static_cast<int>(report.Finish(ExitCode::Success));
}

// With --json a mistake in the command line is an object, too, so that a program never has to read anything
// else.
int FailUsage(const std::string& command, const std::string& mistake, bool asJSON) {
  CryptCli::Report report(command.c_str(), asJSON);
  report.Fail(OruGuiBase::AnsiStr(mistake));
  report.Explain(OruGuiBase::AnsiStr("Run cryptcli " + command + (command.empty() ? "" : " ") +
                                     "--help for more information."));
  return static_cast<int>(report.Finish(ExitCode::Usage));
}

// Without this the first files and connections of the library would be taken for the standard streams that
// the caller has closed, and traces would be written into them. Each stream is opened the wrong way round, so
// that using it still fails.
void OccupyStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    // Gets the lowest free number, which is that of the stream.
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) return;
  }
}

// The commands refer to `options` and `sources`, which must outlive them.
std::vector<Command> AddCommands(CLI::App& app, Options& options,
                                 const CryptCli::ConfigurationSources& sources) {
  return {
      {CryptCli::AddEncrypt(app, options.encrypt),
       [&options] { return CryptCli::RunEncrypt(options.encrypt); }},
      {CryptCli::AddDecrypt(app, options.decrypt),
       [&options] { return CryptCli::RunDecrypt(options.decrypt); }},
      {CryptCli::AddVerify(app, options.verify), [&options] { return CryptCli::RunVerify(options.verify); }},
      {CryptCli::AddRekey(app, options.rekey), [&options] { return CryptCli::RunRekey(options.rekey); }},
      {CryptCli::AddSign(app, options.sign), [&options] { return CryptCli::RunSign(options.sign); }},
      {CryptCli::AddAuditLog(app, options.auditLog),
       [&options] { return CryptCli::RunAuditLog(options.auditLog); }},
      {CryptCli::AddCall(app, options.call), [&options] { return CryptCli::RunCall(options.call); }},
      {CryptCli::AddOperations(app, options.operations),
       [&options] { return CryptCli::RunOperations(options.operations); }},
      {CryptCli::AddInspect(app, options.inspect),
       [&options] { return CryptCli::RunInspect(options.inspect); }},
      {CryptCli::AddRoom(app, options.room), [&options] { return CryptCli::RunRoom(options.room); }},
      {CryptCli::AddDoctor(app, options.doctor), [&options] { return CryptCli::RunDoctor(options.doctor); }},
      {CryptCli::AddConfig(app, options.config),
       [&options, &sources] { return CryptCli::RunConfig(options.config, sources); }},
  };
}

// Runs the command that the parser found in the command line.
int RunParsed(const std::vector<Command>& commands, const CryptCli::SettingsFiller& settings,
              const CryptCli::ConfigurationSources& sources, bool asJSON) {
  for (const Command& command : commands) {
    if (!command.app->parsed()) continue;
    std::string reason;
    // "config" shows a configuration that is wrong, too.
    const bool isReady = command.app->get_name() == "config" || settings.Fill(*command.app, sources, reason);
    if (isReady) return static_cast<int>(command.run());
    return FailUsage(command.app->get_name(), reason, asJSON);
  }
  return static_cast<int>(ExitCode::Usage);
}

int Run(int argc, char** argv) {
  CLI::App app("Protects files for a room, opens protected files, and administers the keys behind them",
               "cryptcli");
  const bool asJSON = CryptCli::AsksForJSON(argc, argv);
  const auto describeVersion = [asJSON] {
    return asJSON ? CryptCli::DescribeVersionAsJSON() : CryptCli::DescribeVersion();
  };
  app.set_version_flag("--version", describeVersion, "Show the versions of the command and its libraries");
  app.require_subcommand(1);
  Options options;
  const CryptCli::ConfigurationSources sources = CryptCli::ConfigurationSources::Make();
  const std::vector<Command> commands = AddCommands(app, options, sources);
  // After the commands, which would inherit it.
  app.footer(kNotes +
             CryptCli::DescribeExitCodes({ExitCode::OriginNotProven, ExitCode::KeyRefused, ExitCode::Partial,
                                          ExitCode::TryLater, ExitCode::BadSource, ExitCode::Unauthorised}));
  CryptCli::SettingsFiller settings;
  const bool hasMark = CryptCli::HasMark(argc, argv);
  for (const Command& command : commands) {
    settings.Adopt(*command.app);
    CryptCli::RefuseEmptyValues(*command.app);
    if (hasMark) CryptCli::TakeWordsAfterMark(*command.app);
  }
  try {
    app.parse(CryptCli::GetArguments(app, argc, argv));
  } catch (const CLI::ParseError& error) {
    // --help and --version arrive here too, with code 0. The parser's other codes are not part of our
    // interface.
    if (error.get_exit_code() == 0) return Show(app, error);
    return FailUsage(CryptCli::GetCommandName(app), CryptCli::DescribeMistake(app, error), asJSON);
  }
  return RunParsed(commands, settings, sources, asJSON);
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardStreams();
  try {
    return Run(argc, argv);
  } catch (const std::exception& failure) {
    return FailUnexpected(failure.what(), CryptCli::AsksForJSON(argc, argv));
  }
}

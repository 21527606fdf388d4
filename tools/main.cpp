#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <exception>

#include "tools/exitcode.h"
#include "tools/inspect.h"
#include "tools/protect.h"

namespace {

using CryptCli::ExitCode;

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0  success\n"
    "  1  the operation failed; TARGET is as it was\n"
    "  2  the command line is wrong; nothing was tried\n"
    "  3  decrypt --require-verified: the origin of the content is not proven; TARGET is as it was\n"
    "  4  encrypt: the crypt service refused to hand out the room's key; TARGET is as it was\n"
    "  128 and a signal's number: the signal ended the command; TARGET is as it was\n"
    "Results go to standard output, errors and warnings to standard error. No environment variable but "
    "TMPDIR\n"
    "has an effect.";

int Fail(const char* text) {
  std::fprintf(stderr, "cryptcli: %s\n", text);
  return static_cast<int>(ExitCode::Failed);
}

int Run(int argc, char** argv) {
  CLI::App app("Protects files for a room, and opens protected files", "cryptcli");
  app.set_version_flag("--version", CRYPTCLI_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.failure_message(CLI::FailureMessage::simple);
  CryptCli::ProtectOptions protect;
  CryptCli::InspectOptions inspect;
  const CLI::App* const encrypt = CryptCli::AddEncrypt(app, protect);
  const CLI::App* const decrypt = CryptCli::AddDecrypt(app, protect);
  CryptCli::AddInspect(app, inspect);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
  }
  ExitCode code = ExitCode::Success;
  if (encrypt->parsed()) {
    code = CryptCli::RunEncrypt(protect);
  } else if (decrypt->parsed()) {
    code = CryptCli::RunDecrypt(protect);
  } else {
    code = CryptCli::RunInspect(inspect);
  }
  return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& failure) {
    return Fail(failure.what());
  }
}

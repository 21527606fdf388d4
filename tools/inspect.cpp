// "cryptcli inspect": prints what a CMS message (RFC 5652) says about itself: its type, and its recipients or
// its signers with their attributes. It asks no server and has no keys, so it can verify nothing and says so.
#include "tools/inspect.h"

#include <CLI/Option.hpp>
#include <stop_token>
#include <string>
#include <unistd.h>

#include "foundation/array.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "tools/files.h"
#include "tools/member.h"
#include "tools/protect.h"
#include "tools/report.h"
#include "tools/session.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::FmtArgs;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

constexpr const char* kNothingVerified =
    "Nothing of this is verified: it is what the file says about itself.";

/// The name of a signed attribute that protected files carry, or its OID.
AnsiStr AttributeName(const AnsiStr& oid) {
  if (oid == "1.3.6.1.4.1.48215.2.1") return "group";
  if (oid == "1.3.6.1.4.1.48215.2.2") return "room";
  if (oid == "1.3.6.1.4.1.48215.2.3") return "room URL";
  return oid;
}

AnsiStr OrElse(const AnsiStr& text, const char* other) {
  return text.IsEmpty() ? AnsiStr(other) : text;
}

void ShowRecipient(const KVMap& recipient, Report& report) {
  report.Line(AnsiStr("recipient: serial ") + StringOf(recipient, "serial") + ", issuer " +
              StringOf(recipient, "issuer"));
}

void ShowSigner(const KVMap& signer, Report& report) {
  report.Line(AnsiStr("signer: ") + OrElse(StringOf(signer, "subject"), "(no certificate in the file)"));
  report.Line(AnsiStr("  time: ") + OrElse(StringOf(signer, "signingTime"), "(none)"));
  for (const auto& [oid, value] : signer.Get("signedAttributes").AsMap()) {
    report.Line(AnsiStr("  ") + AttributeName(oid) + ": " + value.AsString());
  }
}

template <class Show>
void ShowAll(const KVMap& found, const char* name, Show show, Report& report) {
  if (!found.Contains(name)) return;
  const OruGuiBase::Array<Val> values = found.Get(name).AsArray();
  for (const Val& value : values) show(value.AsMap(), report);
  if (values.IsEmpty()) report.Line(AnsiStr(name) + ": (none)");
}

void Show(const KVMap& found, Report& report) {
  report.Line(AnsiStr("type: ") + StringOf(found, "type"));
  report.Line(FmtArgs("size: %lld bytes", static_cast<long long>(found.Get("size").AsInteger())));
  ShowAll(found, "recipients", ShowRecipient, report);
  ShowAll(found, "signers", ShowSigner, report);
  report.Line(kNothingVerified);
}

ExitCode Inspect(const InspectOptions& options, const std::stop_token& stop, Report& report) {
  // The library would wait for the first bytes without noticing a stop.
  if (options.file == kStandardStream && !WaitForInput(STDIN_FILENO, stop)) return ExitCode::Failed;
  const cryptcli::Result<std::string> json = cryptcli::Client::Inspect(GetSource(options.file));
  if (!json) {
    cryptcli::Error error = json.error();
    error.message =
        std::string(DescribeFailure("inspect", AnsiStr(options.file), AnsiStr(error.message)).View());
    report.Fail(error);
    return ToExitCode(error);
  }
  Val found;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(*json), found, reason)) {
    report.Fail(DescribeFailure("inspect", AnsiStr(options.file), reason));
    return ExitCode::Failed;
  }
  report.SetAll(*json);
  Show(found.AsMap(), report);
  return ExitCode::Success;
}

}  // namespace

CLI::App* AddInspect(CLI::App& app, InspectOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "inspect", "Show what a protected file says about itself, without any server and without verifying it");
  command->add_option("FILE", options.file, "File to look at; - for standard input")->required();
  command->add_flag("--json", options.json, "Report as one JSON object, whatever happens");
  command->footer(DescribeExitCodes({ExitCode::BadSource}));
  return command;
}

ExitCode RunInspect(const InspectOptions& options) {
  Report report("inspect", options.json);
  report.Set("file", AnsiStr(options.file));
  // A stream is copied to a temporary file, which a signal must not leave behind.
  return RunWithoutServer(report,
                          [&](const std::stop_token& stop) { return Inspect(options, stop, report); });
}

}  // namespace CryptCli

// "cryptcli inspect": prints what a CMS message (RFC 5652) says about itself: its type, and its recipients or
// its signers with their attributes. It asks no server and has no keys, so it can verify nothing and says so.
#include "tools/inspect.h"

#include <CLI/Option.hpp>
#include <optional>

#include "foundation/array.h"
#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "foundation/format.h"
#include "foundation/kvmap.h"
#include "foundation/queue.h"
#include "foundation/val.h"
#include "security/cmsmsg.h"
#include "tools/files.h"
#include "tools/report.h"
#include "tools/source.h"
#include "tools/watch.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::File;
using OruGuiBase::FmtArgs;
using OruGuiBase::KVMap;
using OruGuiBase::PtrContainerQueue;
using OruGuiBase::Val;
using OruOssSec::CMSKeyTransRecipient;
using OruOssSec::CMSMsg;
using OruOssSec::CMSSigner;

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

AnsiStr TimeText(const OruGuiBase::DateTime& time) {
  if (time == OruGuiBase::DateTime()) return {};
  return FmtArgs("%04d-%02d-%02dT%02d:%02d:%02dZ", time.year, time.month, time.day, time.hour, time.minute,
                 time.second);
}

void SetText(KVMap& map, const char* name, const AnsiStr& text) {
  map.Set(name, ToUTF8(text));
}

Val ShowRecipient(const CMSKeyTransRecipient& recipient, Report& report) {
  report.Line(AnsiStr("recipient: serial ") + recipient.serial + ", issuer " + recipient.issuer);
  KVMap map;
  SetText(map, "issuer", recipient.issuer);
  SetText(map, "serial", recipient.serial);
  return Val(map);
}

Val ShowAttributes(const KVMap& attributes, Report& report) {
  KVMap map;
  for (const auto& [oid, value] : attributes) {
    const AnsiStr text = value.AsString();
    report.Line(AnsiStr("  ") + AttributeName(oid) + ": " + text);
    map.Set(oid, ToUTF8(text));
  }
  return Val(map);
}

Val ShowSigner(const CMSSigner& signer, Report& report) {
  KVMap map;
  AnsiStr subject;
  if (signer.certificate.GetSubject(subject)) SetText(map, "subject", subject);
  const AnsiStr time = TimeText(signer.signingTime);
  if (!time.IsEmpty()) SetText(map, "signingTime", time);
  report.Line(AnsiStr("signer: ") + (subject.IsEmpty() ? AnsiStr("(no certificate in the file)") : subject));
  report.Line(AnsiStr("  time: ") + (time.IsEmpty() ? AnsiStr("(none)") : time));
  map.Set("signedAttributes", ShowAttributes(signer.signedAttributes, report));
  return Val(map);
}

template <class Element, class Show>
void ShowAll(const PtrContainerQueue<Element>& queue, const char* name, Show show, Report& report) {
  Array<Val> values;
  for (const Element& element : queue) values.Append(show(element, report));
  if (queue.IsEmpty()) report.Line(AnsiStr(name) + ": (none)");
  report.Set(name, values);
}

bool ShowParties(const CMSMsg& message, Report& report) {
  if (message.GetType() == CMSMsg::Type::EnvelopedData) {
    PtrContainerQueue<CMSKeyTransRecipient> recipients;
    if (!message.GetRecipients(recipients)) return false;
    ShowAll(recipients, "recipients", ShowRecipient, report);
  } else if (message.GetType() == CMSMsg::Type::SignedData) {
    PtrContainerQueue<CMSSigner> signers;
    if (!message.GetSigners(signers)) return false;
    ShowAll(signers, "signers", ShowSigner, report);
  }
  return true;
}

bool Show(const InspectOptions& options, Report& report) {
  Source source;
  if (!source.Open(options.file)) return false;
  const File& file = source.GetFile();
  OruGuiBase::FileReader reader;
  if (!reader.Open(file)) return false;
  const std::int64_t size = reader.GetSize();
  reader.Close();
  CMSMsg message;
  if (!message.Load(file)) return false;
  report.Line(AnsiStr("type: ") + message.GetTypeStr());
  report.Line(FmtArgs("size: %lld bytes", static_cast<long long>(size)));
  report.Set("type", message.GetTypeStr());
  report.Set("size", size);
  report.Set("verified", false);
  if (!ShowParties(message, report)) return false;
  report.Line(kNothingVerified);
  return true;
}

}  // namespace

CLI::App* AddInspect(CLI::App& app, InspectOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "inspect", "Show what a protected file says about itself, without any server and without verifying it");
  command->add_option("FILE", options.file, "File to look at")->required();
  command->add_flag("--json", options.json, "Report as one JSON object");
  return command;
}

ExitCode RunInspect(const InspectOptions& options) {
  Report report("inspect", options.json);
  report.Set("file", AnsiStr(options.file));
  // A failure without a reason of its own must not report one that is left from earlier.
  OruGuiBase::ClearLastError();
  // Only a stream is copied to a temporary file, which a signal must not leave behind.
  std::optional<Watch> watch;
  if (Source::IsStream(options.file)) watch.emplace().Start("", /*show=*/false);
  if (Show(options, report)) return report.Finish(ExitCode::Success);
  report.Fail(DescribeFailure("inspect", AnsiStr(options.file)));
  return report.Finish(ExitCode::Failed);
}

}  // namespace CryptCli

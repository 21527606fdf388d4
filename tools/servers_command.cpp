// "cryptcli room" and "cryptcli doctor": what the servers know and whether they work. Both change nothing, so
// they are safe to run against a system in use.
#include "tools/servers_command.h"

#include <CLI/Error.hpp>
#include <CLI/Option.hpp>
#include <functional>

#include "foundation/array.h"
#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "tools/bulk_report.h"
#include "tools/member.h"
#include "tools/report.h"
#include "tools/value_check.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

using Question = std::function<cryptcli::Result<std::string>(const cryptcli::Client&, const cryptcli::Call&)>;
using Display = std::function<ExitCode(const KVMap& found, Report& report)>;

// Both commands: ask, take over the members of the result, and show them to people.
ExitCode Ask(const char* command, const SessionOptions& options, const Question& question,
             const Display& show) {
  Session session(command, options);
  const ExitCode code = session.Open();
  if (code != ExitCode::Success) return session.Finish(code);
  return session.Finish(session.Watched("Asking", [&] {
    const cryptcli::Result<std::string> found = question(session.GetClient(), session.MakeCall());
    if (!found) return session.Fail(found.error());
    Val value;
    AnsiStr reason;
    if (!OruGuiBase::JSON2Val(AnsiStr(*found), value, reason)) return session.Fail(ExitCode::Failed, reason);
    session.GetReport().SetAll(*found);
    return show(value.AsMap(), session.GetReport());
  }));
}

const char* DescribeKey(const AnsiStr& type) {
  if (type == "wrapped") return "wrapped: key servers alone can use it";
  if (type == "plain") return "plain: the crypt service gives it to clients, so no origin can be proven";
  return "none: the first encrypt makes one";
}

void ShowCertificate(const KVMap& certificate, Report& report) {
  if (certificate.IsEmpty()) return;
  report.Line(AnsiStr("certificate  ") + StringOf(certificate, "subject"));
  report.Line(AnsiStr("             serial ") + StringOf(certificate, "serial") + " of " +
              StringOf(certificate, "issuer"));
  report.Line(AnsiStr("             valid from ") + StringOf(certificate, "notBefore") + " to " +
              StringOf(certificate, "notAfter"));
}

ExitCode ShowRoom(const KVMap& room, Report& report) {
  report.Line(AnsiStr("room         ") + StringOf(room, "room"));
  report.Line(AnsiStr("group        ") + StringOf(room, "group"));
  report.Line(AnsiStr("key          ") + DescribeKey(StringOf(room, "keyType")));
  ShowCertificate(room.Get("certificate").AsMap(), report);
  for (const Val& server : room.Get("keyServers").AsArray()) {
    report.Line(AnsiStr("key server   ") + server.AsString());
  }
  return ExitCode::Success;
}

const char* NameSubject(const AnsiStr& subject) {
  if (subject == "service") return "crypt service ";
  if (subject == "key_server") return "key server ";
  return "room ";
}

// The findings name their status in words; the exit codes are defined by number. The library may name one
// that this command does not know yet: an internal error is then the honest reading.
cryptcli::Status FindStatus(const AnsiStr& name) {
  for (auto number = static_cast<std::int32_t>(cryptcli::Status::Ok);
       number <= static_cast<std::int32_t>(cryptcli::Status::ServerError); ++number) {
    const auto status = static_cast<cryptcli::Status>(number);
    if (cryptcli::ToString(status) == name.View()) return status;
  }
  return cryptcli::Status::Internal;
}

// The exit code that an operation with the same failure would have.
ExitCode ToExitCode(const KVMap& finding) {
  return CryptCli::ToExitCode(FindStatus(StringOf(finding, "code")), finding.Get("retryable").AsBool());
}

ExitCode ShowFinding(const KVMap& finding, Report& report) {
  const bool isGood = finding.Get("ok").AsBool();
  const AnsiStr advice = StringOf(finding, "advice");
  AnsiStr line = AnsiStr(isGood ? "ok     " : "WRONG  ") + NameSubject(StringOf(finding, "subject")) +
                 StringOf(finding, "name");
  if (!isGood) line = line + ": " + StringOf(finding, "message");
  report.Line(line);
  if (!advice.IsEmpty()) report.Line(AnsiStr("       ") + advice);
  return isGood ? ExitCode::Success : ToExitCode(finding);
}

// Shows every finding, good ones too, since a check that is silent proves nothing. The report of the failure
// has the code of the worst one.
ExitCode ShowFindings(const KVMap& found, Report& report) {
  ExitCode worst = ExitCode::Success;
  KVMap worstFinding;
  std::size_t wrong = 0;
  const Array<Val> findings = found.Get("findings").AsArray();
  for (const Val& finding : findings) {
    const ExitCode code = ShowFinding(finding.AsMap(), report);
    if (code == ExitCode::Success) continue;
    if (++wrong == 1 || Worse(worst, code) != worst) worstFinding = finding.AsMap();
    worst = Worse(worst, code);
  }
  if (wrong > 0)
    report.Fail(
        AnsiStr(std::to_string(wrong) + " of " + std::to_string(findings.GetCount()) + " checks failed"),
        StringOf(worstFinding, "code"), worstFinding.Get("retryable").AsBool());
  return worst;
}

}  // namespace

CLI::App* AddRoom(CLI::App& app, ServersOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "room", "Show what the crypt service knows about a room and its key; changes nothing");
  command->add_option("NAME", options.room, "The room; that of --room without it")
      ->check(NotEmpty("the name of the room"));
  options.session.AddOptions(*command);
  options.session.connection.AddRoomOption(*command)->required(false);
  // Before the configuration fills in a room: NAME and --room exclude each other, NAME and a setting do not.
  command->callback([&options] {
    const std::string& other = options.session.connection.room;
    if (options.room.empty() || other.empty() || options.room == other) return;
    throw CLI::ValidationError("Two rooms are named: \"" + options.room + "\" and, with --room, \"" + other +
                               "\"");
  });
  command->footer(DescribeExitCodes({ExitCode::KeyRefused, ExitCode::TryLater, ExitCode::Unauthorised}));
  return command;
}

CLI::App* AddDoctor(CLI::App& app, ServersOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "doctor", "Check the crypt service and, with a room, its key servers: what is wrong and what to do");
  options.session.AddOptions(*command);
  options.session.connection.AddRoomOption(*command)->required(false);
  command->footer(DescribeExitCodes({ExitCode::KeyRefused, ExitCode::TryLater, ExitCode::Unauthorised}));
  return command;
}

ExitCode RunRoom(const ServersOptions& options) {
  const std::string room = options.room.empty() ? options.session.connection.room : options.room;
  return Ask(
      "room", options.session,
      [&](const cryptcli::Client& client, const cryptcli::Call& call) { return client.Room(room, call); },
      ShowRoom);
}

ExitCode RunDoctor(const ServersOptions& options) {
  const std::string& room = options.session.connection.room;
  return Ask(
      "doctor", options.session,
      [&](const cryptcli::Client& client, const cryptcli::Call& call) {
        return room.empty() ? client.Check(std::nullopt, call) : client.Check(room, call);
      },
      ShowFindings);
}

}  // namespace CryptCli

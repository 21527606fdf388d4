// Which key servers "sign" and "audit-log" ask. Their named operations take a list of URLs; a user
// knows a room, and the crypt service knows the key servers of the room.
#include "tools/key_servers.h"

#include <CLI/Option.hpp>

#include "foundation/format.h"
#include "foundation/json.h"
#include "tools/connection.h"
#include "tools/session.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

// Takes the servers from what the crypt service says about the room, and its timeout unless the command line
// has given one.
ExitCode TakeServers(Session& session, const std::string& json, OruGuiBase::Array<Val>& servers,
                     std::uint32_t& timeout) {
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(json), value, reason)) return session.Fail(ExitCode::Failed, reason);
  const KVMap room = value.AsMap();
  servers = room.Get("keyServers").AsArray();
  if (servers.IsEmpty())
    return session.Fail(ExitCode::Failed, "The crypt service names no key server of the room");
  if (timeout == 0) timeout = static_cast<std::uint32_t>(room.Get("statusTimeout").AsInteger());
  return ExitCode::Success;
}

}  // namespace

void KeyServers::AddOptions(CLI::App& command) {
  command
      .add_option("--key-server", urls,
                  "URL of a key server; repeatable, tried in this order; those of --room without it")
      ->type_name("URL")
      ->expected(1)
      ->allow_extra_args(false)  // else it takes the file after it, too
      ->take_all()
      ->group(kServices);
  command
      .add_option("--status-timeout", statusTimeout,
                  "Longest wait for the response to a key server's probe; 0 for no limit")
      ->type_name("SECONDS")
      ->group(kServices);
}

ExitCode KeyServers::Check(Session& session, const std::string& room) const {
  if (!urls.empty() || !room.empty()) return ExitCode::Success;
  return session.Fail(ExitCode::Usage,
                      "Name key servers with --key-server, or a --room to ask its key servers");
}

ExitCode KeyServers::GetArguments(Session& session, const std::string& room, KVMap& arguments) const {
  OruGuiBase::Array<Val> list;
  for (const std::string& url : urls) list.Append(Val(AnsiStr(url)));
  std::uint32_t timeout = statusTimeout;
  if (urls.empty()) {
    const cryptcli::Result<std::string> found = session.GetClient().Room(room, session.MakeCall());
    if (!found) return session.Fail(found.error());
    const ExitCode code = TakeServers(session, *found, list, timeout);
    if (code != ExitCode::Success) return code;
  }
  arguments.Set("keyserver", Val(list));
  arguments.Set("statustimeout", OruGuiBase::FmtArgs("%u", timeout));
  return ExitCode::Success;
}

}  // namespace CryptCli

#include "tools/key_servers.h"

#include <CLI/Option.hpp>

#include "foundation/format.h"
#include "tools/connection.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

void KeyServers::AddOptions(CLI::App& command) {
  command.add_option("--key-server", urls, "URL of a key server; repeatable, tried in this order")
      ->type_name("URL")
      ->expected(1)
      ->take_all()
      ->required()
      ->group(kServices);
  command
      .add_option("--status-timeout", statusTimeout,
                  "Longest wait for the response to a key server's probe; 0 for no limit")
      ->type_name("SECONDS")
      ->group(kServices);
}

KVMap KeyServers::ToArguments() const {
  OruGuiBase::Array<Val> list;
  for (const std::string& url : urls) list.Append(Val(AnsiStr(url)));
  KVMap arguments;
  arguments.Set("keyserver", Val(list));
  arguments.Set("statustimeout", OruGuiBase::FmtArgs("%u", statusTimeout));
  return arguments;
}

}  // namespace CryptCli

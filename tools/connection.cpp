// The options that say how to reach the crypt service, and what a client is made from. Every command that
// asks a server has them, through SessionOptions.
#include "tools/connection.h"

#include <CLI/Option.hpp>
#include <CLI/Validators.hpp>
#include <chrono>
#include <string_view>

#include "foundation/encoding.h"
#include "foundation/stream.h"
#include "foundation/text_checks.h"
#include "tools/files.h"
#include "tools/value_check.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

// One header on each line; empty lines are skipped.
bool AddHeaders(const AnsiStr& text, KVMap& headers, AnsiStr& errorText) {
  OruGuiBase::LineIterator lines(text);
  while (lines.ToNext()) {
    if (OruGuiBase::CleanStr(lines.GetLine()).IsEmpty() || AddHeader(lines.GetLine(), headers)) continue;
    // The line is not quoted: it may contain a secret.
    errorText = "A header has the form 'Name: value'";
    return false;
  }
  return true;
}

}  // namespace

bool AddHeader(const AnsiStr& line, KVMap& headers) {
  const std::string_view view = line.View();
  const std::size_t colon = view.find(':');
  if (colon == std::string_view::npos || colon == 0 || !OruGuiBase::IsHeaderValue(view)) return false;
  const std::string_view name = view.substr(0, colon);
  if (name.find_first_of(" \t") != std::string_view::npos) return false;
  return headers.Set(AnsiStr(name), OruGuiBase::CleanStr(AnsiStr(view.substr(colon + 1))));
}

void Connection::AddOptions(CLI::App& command) {
  const auto file = [&](const char* name, std::string& value, const char* text) {
    return command.add_option(name, value, text)
        ->type_name("FILE")
        ->check(CLI::Validator(CLI::ExistingFile).description(""))
        ->group(kServices);
  };
  command.add_option("--profile", profile, "Profile of the configuration files to use")
      ->type_name("NAME")
      ->group(kServices);
  command.add_option("--service", service, "Base URL of the crypt service")
      ->type_name("URL")
      ->required()
      ->group(kServices);
  file("--ca-file", caFile, "PEM file of the certification authorities to trust instead of the system's");
  file("--client-cert", clientCert, "PEM file of a client certificate");
  file("--client-key", clientKey, "PEM file of its key, if it is not in the same file");
  file("--client-key-password-file", clientKeyPasswordFile, "File whose first line is that key's password");
  command.add_option("--proxy", proxy, "URL of a proxy")->type_name("URL")->group(kServices);
  command
      .add_option("--header", headers, "Header for requests to the crypt service, 'Name: value'; repeatable")
      ->type_name("HEADER")
      ->expected(1)
      ->allow_extra_args(false)  // else it takes the files after it, too
      ->take_all()
      ->group(kServices);
  file("--header-file", headerFile, "The same from a file, one to a line; for secrets");
  const auto seconds = [&](const char* name, std::uint32_t& value, const char* text) {
    // An hour: longer than any exchange takes, and far from the limit of the library's milliseconds.
    command.add_option(name, value, text)->type_name("SECONDS")->check(NumberFrom(1, 3600))->group(kServices);
  };
  seconds("--connect-timeout", connectTimeout, "Longest wait for a connection to a server; 30 by default");
  seconds("--timeout", timeout, "Longest wait for the whole response of a server; 300 by default");
}

CLI::Option* Connection::AddRoomOption(CLI::App& command) {
  return command.add_option("--room", room, "Room to work for")
      ->type_name("ROOM")
      ->check(NotEmpty("the name of the room"))
      ->required()
      ->group(kServices);
}

bool Connection::GetOptions(cryptcli::Options& options, const std::stop_token& stop,
                            AnsiStr& errorText) const {
  // Each may come from the command line or from the configuration, so the parser cannot check it.
  if (clientCert.empty() && !(clientKey.empty() && clientKeyPasswordFile.empty())) {
    errorText = "--client-key and --client-key-password-file need --client-cert";
    return false;
  }
  options.service = service;
  options.caFile = caFile;
  options.clientCertificate = {clientCert, clientKey, clientKeyPasswordFile};
  options.proxy = proxy;
  options.connectTimeout = std::chrono::seconds(connectTimeout);
  options.timeout = std::chrono::seconds(timeout);
  KVMap all;
  AnsiStr fromFile;
  AnsiStr reason;
  if (!headerFile.empty() && !ReadUnlessStopped(headerFile, stop, fromFile, reason)) {
    errorText = DescribeFailure("read", AnsiStr(headerFile), reason);
    return false;
  }
  if (!AddHeaders(fromFile, all, errorText)) return false;
  for (const std::string& header : headers) {
    if (AddHeader(AnsiStr(header), all)) continue;
    errorText = "A header has the form 'Name: value'";
    return false;
  }
  // They authenticate the user to the crypt service; the library keeps them from key servers.
  for (const auto& [name, value] : all) {
    options.headers.push_back({std::string(name.View()), std::string(value.AsString().View())});
  }
  return true;
}

}  // namespace CryptCli

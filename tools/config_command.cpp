// "cryptcli config": shows which settings a command would use and who decided. It asks no server. The
// files that settings name are read to check them.
#include "tools/config_command.h"

#include <CLI/Option.hpp>
#include <algorithm>
#include <stop_token>

#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "tools/apply_settings.h"
#include "tools/report.h"
#include "tools/session.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

constexpr std::size_t kNameWidth = 26;   // the longest name and two blanks
constexpr std::size_t kValueWidth = 40;  // most values; longer ones push their origin to the right

const char* NameSettingOrigin(SettingOrigin origin) {
  switch (origin) {
    case SettingOrigin::Option:
      return "option";
    case SettingOrigin::Environment:
      return "environment";
    case SettingOrigin::UserFile:
      return "user_file";
    case SettingOrigin::SystemFile:
      return "system_file";
    case SettingOrigin::Standard:
      break;
  }
  return "default";
}

// A proxy's URL may contain a name and a password.
std::string HideCredentials(const std::string& value) {
  const std::size_t begin = value.find("://");
  const std::size_t end = value.find('@');
  if (begin == std::string::npos || end == std::string::npos || end < begin) return value;
  return value.substr(0, begin + 3) + "***" + value.substr(value.rfind('@'));
}

std::string Pad(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 1, width), ' ');
  return text;
}

void Show(const std::string& name, const SettingValue& value, const std::string& unusedBecause,
          Array<Val>& entries, Report& report) {
  const std::string shown = HideCredentials(value.value);
  KVMap entry;
  entry.Set("name", AnsiStr(name));
  entry.Set("value", ToUTF8(AnsiStr(shown)));
  entry.Set("origin", NameSettingOrigin(value.origin));
  entry.Set("place", ToUTF8(AnsiStr(value.place)));
  if (!unusedBecause.empty()) entry.Set("unusedBecause", ToUTF8(AnsiStr(unusedBecause)));
  entries.Append(Val(entry));
  std::string place = value.origin == SettingOrigin::Standard ? "default" : value.place;
  if (!unusedBecause.empty()) place += " (not used: " + unusedBecause + ")";
  report.Line(AnsiStr(Pad(name, kNameWidth) + Pad(shown.empty() ? "-" : shown, kValueWidth) + place));
}

void ShowFiles(const Configuration& configuration, Report& report) {
  Array<Val> files;
  for (const ConfigFile& file : configuration.GetFiles()) {
    KVMap entry;
    entry.Set("path", ToUTF8(AnsiStr(file.path)));
    entry.Set("exists", Val(file.isThere));
    files.Append(Val(entry));
    report.Line(AnsiStr(Pad("file", kNameWidth) + Pad(file.path, kValueWidth) +
                        (file.isThere ? "exists" : "does not exist")));
  }
  report.Set("files", files);
}

// What the other commands would refuse, found by the same checks.
std::vector<std::string> FindProblems(const ConfigOptions& options, const Configuration& configuration,
                                      const std::vector<ResolvedSetting>& resolved,
                                      const std::stop_token& stop) {
  std::vector<std::string> problems = configuration.GetProblems();
  for (const std::string& problem : GiveSettings(*options.command, resolved)) problems.push_back(problem);
  // Rules about several settings would only repeat what is wrong with one of them, so they come last.
  if (!problems.empty()) return problems;
  cryptcli::Options made;
  AnsiStr errorText;
  if (!options.connection.GetOptions(made, stop, errorText)) return {std::string(errorText.View())};
  // Reads the TLS files and asks no server. Without a service there is nothing to make yet.
  if (made.service.empty()) return problems;
  const cryptcli::Result<cryptcli::Client> client = cryptcli::Client::Create(made);
  if (!client) problems.push_back(client.error().message);
  return problems;
}

ExitCode ShowProblems(const std::vector<std::string>& problems, Report& report) {
  if (problems.empty()) return ExitCode::Success;
  Array<Val> all;
  for (const std::string& problem : problems) all.Append(Val(ToUTF8(AnsiStr(problem))));
  report.Set("problems", all);
  report.Fail(AnsiStr(problems.front()));
  for (std::size_t i = 1; i < problems.size(); ++i) report.Explain(AnsiStr("cryptcli: " + problems[i]));
  return ExitCode::Usage;
}

}  // namespace

CLI::App* AddConfig(CLI::App& app, ConfigOptions& options) {
  CLI::App* const command =
      app.add_subcommand("config", "Show each setting, its value and where it comes from; asks no server");
  command->add_flag("--json", options.json, "Report as one JSON object, whatever happens");
  options.connection.AddOptions(*command);
  options.connection.AddRoomOption(*command);
  command->footer(
      "Settings come from options, then environment variables (CRYPTCLI_SERVICE, CRYPTCLI_ROOM,\n"
      "CRYPTCLI_CA_FILE, CRYPTCLI_CLIENT_CERT, CRYPTCLI_CLIENT_KEY, CRYPTCLI_HEADER_FILE, CRYPTCLI_PROXY;\n"
      "CRYPTCLI_PROFILE names a profile), then $XDG_CONFIG_HOME/cryptcli/config or\n"
      "~/.config/cryptcli/config, then /etc/cryptcli/config. A file has lines 'key = value', with the names\n"
      "that this command shows as keys, comments after #, and profiles below '[name]'.\n\n" +
      DescribeExitCodes({}));
  options.command = command;
  return command;
}

ExitCode RunConfig(const ConfigOptions& options, const ConfigurationSources& sources) {
  Report report("config", options.json);
  const Configuration configuration = LoadConfiguration(*options.command, sources);
  Array<Val> entries;
  Show("profile", configuration.GetProfile(), {}, entries, report);
  const std::vector<ResolvedSetting> resolved = ResolveSettings(*options.command, configuration);
  for (const ResolvedSetting& one : resolved) {
    Show(one.setting->key, one.value, one.unusedBecause, entries, report);
  }
  report.Set("settings", entries);
  ShowFiles(configuration, report);
  // The file of headers may be a pipe that nobody writes to.
  return RunWithoutServer(report, [&](const std::stop_token& stop) {
    return ShowProblems(FindProblems(options, configuration, resolved, stop), report);
  });
}

}  // namespace CryptCli

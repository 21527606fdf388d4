// Lets the configuration fill in the options that a command line leaves out: called once, between the parsing
// and the run of a command, so that no command has to know about configuration.
#include "tools/apply_settings.h"

#include <CLI/Error.hpp>
#include <CLI/Option.hpp>
#include <algorithm>

namespace CryptCli {

namespace {

CLI::Option* FindOption(CLI::App& command, const Setting& setting) {
  return command.get_option_no_throw(std::string("--") + setting.key);
}

const CLI::Option* FindOption(const CLI::App& command, const Setting& setting) {
  return command.get_option_no_throw(std::string("--") + setting.key);
}

bool IsGiven(const CLI::Option* option) {
  return option != nullptr && option->count() > 0;
}

ResolvedSetting Resolve(const CLI::App& command, const Configuration& configuration, const Setting& setting) {
  ResolvedSetting resolved;
  resolved.setting = &setting;
  const CLI::Option* const option = FindOption(command, setting);
  if (IsGiven(option)) {
    resolved.value = {SettingOrigin::Option, option->results().back(), std::string("--") + setting.key};
  } else {
    resolved.value =
        configuration.Find(setting).value_or(SettingValue{SettingOrigin::Standard, setting.standard, {}});
  }
  return resolved;
}

ResolvedSetting& Find(std::vector<ResolvedSetting>& all, std::string_view key) {
  return *std::find_if(all.begin(), all.end(),
                       [key](const ResolvedSetting& one) { return key == one.setting->key; });
}

// A key belongs to the certificate of its own place or of a weaker one: "--client-cert" with a certificate
// and key in one file must not get the key of a profile.
void BindToCertificate(std::vector<ResolvedSetting>& all, std::string_view key) {
  const ResolvedSetting& certificate = Find(all, "client-cert");
  ResolvedSetting& bound = Find(all, key);
  if (bound.value.origin == SettingOrigin::Standard || certificate.value.origin >= bound.value.origin) return;
  bound.unusedBecause = "client-cert comes from " + certificate.value.place;
}

std::string_view WithoutLastSlash(std::string_view url) {
  return url.ends_with('/') ? url.substr(0, url.size() - 1) : url;
}

// The headers authenticate the user. Whoever points a command at another service does not mean to give it
// the credentials for this one.
void BindHeadersToService(std::vector<ResolvedSetting>& all, const Configuration& configuration) {
  const ResolvedSetting& service = Find(all, "service");
  ResolvedSetting& headers = Find(all, "header-file");
  const bool isFromFile =
      headers.value.origin == SettingOrigin::UserFile || headers.value.origin == SettingOrigin::SystemFile;
  const auto meant = configuration.FindInFiles(GetSetting("service"));
  if (!isFromFile || !meant) return;
  if (WithoutLastSlash(meant->value) == WithoutLastSlash(service.value.value)) return;
  headers.unusedBecause = "it is for the service " + meant->value;
}

// Runs the option's own checks, so that a setting is refused for the same reasons as the option. The message
// begins with the place of the setting, which the user would otherwise have to search for.
bool Give(CLI::Option& option, const ResolvedSetting& resolved, std::string& errorText) {
  try {
    option.add_result(resolved.value.value);
    option.run_callback();
    return true;
  } catch (const CLI::ParseError& error) {
    errorText = resolved.value.place + ": " + error.what();
    return false;
  }
}

bool HasAll(const CLI::App& command, const std::vector<const Setting*>& needed, std::string& errorText) {
  for (const Setting* setting : needed) {
    if (IsGiven(FindOption(command, *setting))) continue;
    errorText = std::string("--") + setting->key + " is required";
    if (setting->environment != nullptr) errorText += std::string(", or ") + setting->environment;
    errorText += std::string(", or '") + setting->key + "' in a configuration file";
    return false;
  }
  return true;
}

}  // namespace

Configuration LoadConfiguration(const CLI::App& command, const ConfigurationSources& sources) {
  const CLI::Option* const profile = command.get_option_no_throw("--profile");
  return Configuration::Load(sources, IsGiven(profile) ? profile->results().back() : std::string());
}

std::vector<ResolvedSetting> ResolveSettings(const CLI::App& command, const Configuration& configuration) {
  std::vector<ResolvedSetting> all;
  for (const Setting& setting : GetSettings()) all.push_back(Resolve(command, configuration, setting));
  BindToCertificate(all, "client-key");
  BindToCertificate(all, "client-key-password-file");
  BindHeadersToService(all, configuration);
  return all;
}

std::vector<std::string> GiveSettings(CLI::App& command, const std::vector<ResolvedSetting>& resolved) {
  std::vector<std::string> problems;
  for (const ResolvedSetting& one : resolved) {
    const bool isConfigured =
        one.value.origin != SettingOrigin::Option && one.value.origin != SettingOrigin::Standard;
    CLI::Option* const option = FindOption(command, *one.setting);
    if (!isConfigured || option == nullptr || !one.unusedBecause.empty()) continue;
    std::string reason;
    if (!Give(*option, one, reason)) problems.push_back(reason);
  }
  return problems;
}

void SettingsFiller::Adopt(CLI::App& command) {
  for (const Setting& setting : GetSettings()) {
    CLI::Option* const option = FindOption(command, setting);
    if (option == nullptr || !option->get_required()) continue;
    option->required(false);
    needed_[&command].push_back(&setting);
  }
}

bool SettingsFiller::Fill(CLI::App& command, const ConfigurationSources& sources,
                          std::string& errorText) const {
  if (command.get_option_no_throw("--service") == nullptr) return true;
  const Configuration configuration = LoadConfiguration(command, sources);
  if (!configuration.GetProblems().empty()) {
    errorText = configuration.GetProblems().front();
    return false;
  }
  const std::vector<std::string> problems = GiveSettings(command, ResolveSettings(command, configuration));
  if (!problems.empty()) {
    errorText = problems.front();
    return false;
  }
  const auto needed = needed_.find(&command);
  return needed == needed_.end() || HasAll(command, needed->second, errorText);
}

}  // namespace CryptCli

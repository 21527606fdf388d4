// The settings that need not be typed each time, and who decides: an option, else the environment, else the
// user's file, else the system's. Used by every command with a server (apply_settings.h) and shown by
// "cryptcli config". What weakens a check (such as --accept) is no setting on purpose: it has to be typed.
#include "tools/configuration.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <unistd.h>

#include "tools/suggestion.h"

namespace CryptCli {

namespace {

// No setting holds a secret itself: headers and passwords are in files of their own, which are named here.
constexpr Setting kSettings[] = {
    {"service", "CRYPTCLI_SERVICE", /*isPath=*/false, ""},
    {"room", "CRYPTCLI_ROOM", /*isPath=*/false, ""},
    {"ca-file", "CRYPTCLI_CA_FILE", /*isPath=*/true, "the system's authorities"},
    {"client-cert", "CRYPTCLI_CLIENT_CERT", /*isPath=*/true, ""},
    {"client-key", "CRYPTCLI_CLIENT_KEY", /*isPath=*/true, "in the file of client-cert"},
    {"client-key-password-file", nullptr, /*isPath=*/true, ""},
    {"header-file", "CRYPTCLI_HEADER_FILE", /*isPath=*/true, ""},
    {"proxy", "CRYPTCLI_PROXY", /*isPath=*/false, ""},
    {"connect-timeout", nullptr, /*isPath=*/false, "30"},
    {"timeout", nullptr, /*isPath=*/false, "300"},
    {"tmp-dir", nullptr, /*isPath=*/true, "TMPDIR or /tmp"},
};

constexpr const char* kProfileVariable = "CRYPTCLI_PROFILE";

// An empty variable counts as unset: that is how a script takes back what its caller exported.
std::string ReadVariable(const ConfigurationSources& sources, const char* name) {
  const char* const value = name == nullptr ? nullptr : sources.environment(name);
  return value == nullptr ? std::string() : std::string(value);
}

std::string HomeFolder() {
  const char* const home = std::getenv("HOME");
  if (home != nullptr && *home == '/') return home;
  const passwd* const user = ::getpwuid(::geteuid());
  return user == nullptr || user->pw_dir == nullptr ? std::string() : std::string(user->pw_dir);
}

// A file can be moved together with what it names, and means the same from whatever folder a command is
// started.
std::string ResolvePath(const std::string& file, const std::string& value) {
  if (value.rfind("~/", 0) == 0) return HomeFolder() + value.substr(1);
  return (std::filesystem::path(file).parent_path() / value).lexically_normal().string();
}

const ConfigEntry* FindEntry(const ConfigFile& file, std::string_view section, std::string_view key) {
  for (const ConfigEntry& entry : file.entries) {
    if (entry.section == section && entry.key == key) return &entry;
  }
  return nullptr;
}

std::string DescribePlace(const ConfigFile& file, const ConfigEntry& entry) {
  const std::string place = file.path + ":" + std::to_string(entry.line);
  return entry.section.empty() ? place : place + " [" + entry.section + "]";
}

std::string Suggestion(std::string_view word, const std::vector<std::string>& words) {
  const std::string similar = FindSimilar(word, words);
  return similar.empty() ? std::string() : "; did you mean '" + similar + "'?";
}

}  // namespace

std::span<const Setting> GetSettings() {
  return kSettings;
}

const Setting& GetSetting(std::string_view key) {
  const auto* const found = std::find_if(std::begin(kSettings), std::end(kSettings),
                                         [key](const Setting& setting) { return key == setting.key; });
  if (found == std::end(kSettings)) std::abort();
  return *found;
}

ConfigurationSources ConfigurationSources::Make() {
  ConfigurationSources sources;
  sources.environment = [](const char* name) -> const char* { return std::getenv(name); };
  // By the XDG base directory rules a relative path in this variable is to be ignored.
  const std::string folder = ReadVariable(sources, "XDG_CONFIG_HOME");
  const std::string home = HomeFolder();
  if (!folder.empty() && folder.front() == '/') {
    sources.userFile = (std::filesystem::path(folder) / "cryptcli/config").string();
  } else if (!home.empty()) {
    sources.userFile = home + "/.config/cryptcli/config";
  }
  sources.systemFile = "/etc/cryptcli/config";
  return sources;
}

Configuration Configuration::Load(const ConfigurationSources& sources, const std::string& profile) {
  Configuration configuration;
  configuration.sources_ = sources;
  configuration.profile_ = {SettingOrigin::Option, profile, "--profile"};
  if (profile.empty()) {
    const std::string named = ReadVariable(sources, kProfileVariable);
    if (named.empty()) {
      configuration.profile_ = {SettingOrigin::Standard, {}, {}};
    } else {
      configuration.profile_ = {SettingOrigin::Environment, named, kProfileVariable};
    }
  }
  configuration.AddFile(sources.userFile);
  configuration.AddFile(sources.systemFile);
  configuration.CheckProfile();
  return configuration;
}

void Configuration::AddFile(const std::string& path) {
  files_.push_back(path.empty() ? ConfigFile() : ReadConfigFile(path));
  const std::vector<std::string>& found = files_.back().problems;
  problems_.insert(problems_.end(), found.begin(), found.end());
  CheckKeys(files_.back());
}

void Configuration::CheckKeys(const ConfigFile& file) {
  std::vector<std::string> known;
  for (const Setting& setting : kSettings) known.emplace_back(setting.key);
  for (const ConfigEntry& entry : file.entries) {
    if (std::find(known.begin(), known.end(), entry.key) != known.end()) continue;
    problems_.push_back(file.path + ":" + std::to_string(entry.line) + ": unknown setting '" + entry.key +
                        "'" + Suggestion(entry.key, known));
  }
}

void Configuration::CheckProfile() {
  // With a file that cannot be read the profile may well be in it.
  if (profile_.value.empty() || !problems_.empty()) return;
  std::vector<std::string> known;
  for (const ConfigFile& file : files_) known.insert(known.end(), file.sections.begin(), file.sections.end());
  if (std::find(known.begin(), known.end(), profile_.value) != known.end()) return;
  // Never ignored: without its profile the command would talk to another service than the user meant.
  problems_.push_back(profile_.place + ": no configuration file has a profile '" + profile_.value + "'" +
                      Suggestion(profile_.value, known));
}

std::optional<SettingValue> Configuration::Find(const Setting& setting) const {
  const std::string variable = ReadVariable(sources_, setting.environment);
  if (!variable.empty()) return SettingValue{SettingOrigin::Environment, variable, setting.environment};
  return FindInFiles(setting);
}

std::optional<SettingValue> Configuration::FindInFiles(const Setting& setting) const {
  for (const ConfigFile& file : files_) {
    const ConfigEntry* entry = nullptr;
    if (!profile_.value.empty()) entry = FindEntry(file, profile_.value, setting.key);
    if (entry == nullptr) entry = FindEntry(file, "", setting.key);
    if (entry == nullptr) continue;
    const SettingOrigin origin =
        &file == &files_.front() ? SettingOrigin::UserFile : SettingOrigin::SystemFile;
    return SettingValue{origin, setting.isPath ? ResolvePath(file.path, entry->value) : entry->value,
                        DescribePlace(file, *entry)};
  }
  return std::nullopt;
}

}  // namespace CryptCli

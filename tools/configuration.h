#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/config_file.h"

namespace CryptCli {

/// Something that the environment or a configuration file can set in place of an option.
struct Setting {
  const char* key;          ///< in a configuration file; the option has the same name, with "--" before it
  const char* environment;  ///< null when no variable sets it
  bool isPath;              ///< a relative path in a configuration file starts at that file's folder
  const char* standard;     ///< what holds when nothing sets it, for people; empty for nothing
};

/// All settings, in the order in which they are shown.
std::span<const Setting> GetSettings();
/// The setting of that key, which must be one.
const Setting& GetSetting(std::string_view key);

/// Where a value comes from; the first that has one counts.
enum class SettingOrigin { Option, Environment, UserFile, SystemFile, Standard };

/// The value of one setting.
struct SettingValue {
  SettingOrigin origin = SettingOrigin::Standard;
  std::string value;
  std::string place;  ///< where it is set, for people: "CRYPTCLI_ROOM", "/etc/cryptcli/config:3 [work]"
};

/// Where a configuration is read from; tests give their own.
struct ConfigurationSources {
  std::string userFile;  ///< empty for none
  std::string systemFile;
  std::function<const char*(const char* name)> environment;  ///< as getenv

  /// $XDG_CONFIG_HOME/cryptcli/config or ~/.config/cryptcli/config, /etc/cryptcli/config, and this process's
  /// environment.
  static ConfigurationSources Make();
};

/// What the environment and the configuration files say. Immutable after Load.
class Configuration {
 public:
  /// Reads everything. An empty `profile` stands for that in CRYPTCLI_PROFILE, if there is one.
  static Configuration Load(const ConfigurationSources& sources, const std::string& profile);

  /// What is wrong; a configuration with problems must not be used.
  const std::vector<std::string>& GetProblems() const { return problems_; }
  /// The value of a setting, if the environment or a file has one.
  std::optional<SettingValue> Find(const Setting& setting) const;
  /// The same without the environment.
  std::optional<SettingValue> FindInFiles(const Setting& setting) const;
  const SettingValue& GetProfile() const { return profile_; }
  /// The user's file and the system's, in this order, present or not.
  std::span<const ConfigFile> GetFiles() const { return files_; }

 private:
  void AddFile(const std::string& path);
  void CheckKeys(const ConfigFile& file);
  void CheckProfile();

  ConfigurationSources sources_;
  SettingValue profile_;
  std::vector<ConfigFile> files_;
  std::vector<std::string> problems_;
};

}  // namespace CryptCli

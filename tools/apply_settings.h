#pragma once

#include <CLI/App.hpp>
#include <map>
#include <string>
#include <vector>

#include "tools/configuration.h"

namespace CryptCli {

/// The value of one setting for one run of a command.
struct ResolvedSetting {
  const Setting* setting = nullptr;
  SettingValue value;
  std::string unusedBecause;  ///< why the value has no effect; empty when it has
};

/// The environment and the files with the profile that the parsed command names (--profile).
Configuration LoadConfiguration(const CLI::App& command, const ConfigurationSources& sources);

/// All settings, for a command that was parsed: an option that was given counts, then the configuration.
///
/// What belongs to something else is used with that alone. A key and its password belong to the client
/// certificate of the same place or a weaker one; the headers of a configuration file belong to the service
/// that the files name, and are not sent to another one.
std::vector<ResolvedSetting> ResolveSettings(const CLI::App& command, const Configuration& configuration);

/// Gives the command the values that come from the configuration and have an effect. Returns what is wrong
/// with each that its option does not take.
std::vector<std::string> GiveSettings(CLI::App& command, const std::vector<ResolvedSetting>& resolved);

/// Lets the configuration fill in the options that a command line leaves out. Lives as long as the commands.
class SettingsFiller {
 public:
  /// Call for each command before parsing: an option that a setting can fill in need not be given any more.
  void Adopt(CLI::App& command);
  /// Call for the command that was parsed. Commands without "--service" are left alone. False, with the
  /// reason, when the configuration or one of its values is wrong, or a needed option has no value.
  bool Fill(CLI::App& command, const ConfigurationSources& sources, std::string& errorText) const;

 private:
  std::map<const CLI::App*, std::vector<const Setting*>> needed_;
};

}  // namespace CryptCli

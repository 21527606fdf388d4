#pragma once

#include <CLI/App.hpp>

#include "tools/configuration.h"
#include "tools/connection.h"
#include "tools/exit_code.h"

namespace CryptCli {

/// The options of "config": those that it shows, so that it shows what they would change.
struct ConfigOptions {
  Connection connection;
  bool json = false;
  CLI::App* command = nullptr;  ///< itself, after parsing; lives as long as the program
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddConfig(CLI::App& app, ConfigOptions& options);

/// Shows each setting with its value and where that comes from. Usage when the configuration is wrong, so
/// that every command would refuse it: then it lists every problem.
ExitCode RunConfig(const ConfigOptions& options, const ConfigurationSources& sources);

}  // namespace CryptCli

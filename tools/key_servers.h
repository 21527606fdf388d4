#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/kvmap.h"

namespace CryptCli {

/// Which key servers an operation asks, as the command line says. Commands that work for a room do not have
/// these options: the crypt service names the room's key servers.
struct KeyServers {
  std::vector<std::string> urls;
  std::uint32_t statusTimeout = 0;

  void AddOptions(CLI::App& command);
  /// The arguments that every named operation has; the command adds its own.
  OruGuiBase::KVMap ToArguments() const;
};

}  // namespace CryptCli

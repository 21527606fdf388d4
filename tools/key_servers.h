#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/kvmap.h"
#include "tools/exit_code.h"

namespace CryptCli {

class Session;

/// Which key servers an operation asks: those of the command line or, without any, those that the crypt
/// service names for a room.
struct KeyServers {
  std::vector<std::string> urls;
  std::uint32_t statusTimeout = 0;

  void AddOptions(CLI::App& command);
  /// Fails with Usage if it cannot be known which key servers to ask.
  ExitCode Check(Session& session, const std::string& room) const;
  /// Adds the arguments that every named operation has; the command adds its own. Asks the crypt service for
  /// the room's key servers if none was given. Anything but Success has reported its reason.
  ExitCode GetArguments(Session& session, const std::string& room, OruGuiBase::KVMap& arguments) const;
};

}  // namespace CryptCli

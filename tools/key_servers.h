#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/kvmap.h"

namespace CryptCli {

/// Which key servers an operation asks, as the command line tells it.
struct KeyServers {
  std::vector<std::string> urls;
  std::uint32_t statusTimeout = 0;

  void AddOptions(CLI::App& command);
  /// The beginning of the arguments of every named operation.
  OruGuiBase::KVMap ToArguments() const;
};

}  // namespace CryptCli

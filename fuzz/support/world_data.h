#pragma once

#include <string_view>
#include <vector>

namespace Fuzz {

/// One file of fuzz/world.
struct WorldFile {
  std::string_view name;
  std::string_view text;
};

/// All files of fuzz/world, built in.
const std::vector<WorldFile>& GetWorldFiles();

}  // namespace Fuzz

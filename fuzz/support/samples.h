#pragma once

#include <string>
#include <vector>

#include "fuzz/support/input.h"
#include "fuzz/support/world.h"

namespace Fuzz {

/// The bytes of the sample that the input chooses. There must be one.
const std::string& Choose(const std::vector<Sample>& samples, Input& input);

/// A valid envelope for the room's key around any content: a changed envelope is mostly refused by its first
/// check, while changed content in a valid one reaches the check of signatures.
std::string Envelop(const std::string& content);

}  // namespace Fuzz

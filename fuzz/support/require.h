#pragma once

#include <string_view>

namespace Fuzz {

/// Aborts if a property does not hold, so that the fuzzer keeps the input as one that crashed. `property`
/// says what should have been true.
void Require(bool holds, std::string_view property);

}  // namespace Fuzz

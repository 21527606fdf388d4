// Aborts when a property is broken, since fuzzers record that as a crash.
#include "fuzz/support/require.h"

#include <cstdio>
#include <cstdlib>

namespace Fuzz {

void Require(bool holds, std::string_view property) {
  if (holds) return;
  std::fprintf(stderr, "Broken property: %.*s\n", static_cast<int>(property.size()), property.data());
  std::abort();
}

}  // namespace Fuzz

#pragma once

#include <cryptcli/cryptcli.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/files.h"

namespace TestSupport {

/// Flips single bits all over the file "secret". `open` opens "flipped" into "opened" and returns the origin
/// of what was delivered, none if nothing was. Nothing authenticates the envelope's own header, so a few
/// flips leave content and proof as they were; no flip may deliver anything else.
template <class Open>
void ExpectFlipsDeliverNothingElse(const ScratchDirectory& scratch, std::string_view content, Open open) {
  const std::string original = scratch.Read("secret");
  std::size_t delivered = 0;
  for (std::size_t byte = 0; byte < original.size(); byte += 7) {
    std::string flipped = original;
    flipped[byte] = static_cast<char>(flipped[byte] ^ (1 << (byte % 8)));
    scratch.Make("flipped", flipped);
    scratch.Make("opened", "as before");
    const std::optional<cryptcli_origin> origin = open();
    if (origin) {
      ++delivered;
      EXPECT_EQ(*origin, CRYPTCLI_ORIGIN_PROVEN) << "byte " << byte;
    }
    EXPECT_EQ(scratch.Read("opened"), origin ? content : "as before") << "byte " << byte;
  }
  EXPECT_LT(delivered, 10U);
}

}  // namespace TestSupport

#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/val.h"

namespace OruKalvix {

/// The key servers of a client and where its rotation over them stands.
struct KeyServerCursor {
  OruGuiBase::Array<OruGuiBase::Val> servers;  ///< URLs, each a string
  std::uint32_t startIndex = 0;      ///< where a sweep begins, before reduction by the number of servers
  std::uint32_t attempts = 0;        ///< servers that this sweep has taken
  OruGuiBase::AnsiStr keyServerUrl;  ///< the server in use; empty before a sweep and after it ran out
};

}  // namespace OruKalvix

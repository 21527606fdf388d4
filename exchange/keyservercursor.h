#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/val.h"

namespace OruKalvix {

/// The key servers of a client, and the position of its rotation over them. Owned by the client.
struct KeyServerCursor {
  OruGuiBase::Array<OruGuiBase::Val> servers;  ///< URLs, each a string
  std::uint32_t startIndex = 0;      ///< where a sweep begins, before reduction by the number of servers
  std::uint32_t attempts = 0;        ///< how many servers this sweep has taken so far
  OruGuiBase::AnsiStr keyServerUrl;  ///< the server in use; empty before a sweep, and when no server is left
};

}  // namespace OruKalvix

#pragma once

#include <string>

#include "stand/stand.h"

namespace TestSupport {

/// The URLs of the key servers as a JSON array, for the argument "keyserver" of a named operation.
inline std::string ListKeyServers(const CryptStand::Stand& stand) {
  std::string list;
  for (const std::string& url : stand.GetKeyServerUrls()) list += (list.empty() ? "\"" : ",\"") + url + "\"";
  return "[" + list + "]";
}

}  // namespace TestSupport

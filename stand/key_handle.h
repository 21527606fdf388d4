#pragma once

#include <string>

#include "stand/commands.h"

namespace CryptStand {

/// Names a key of a group's key store.
struct Handle {
  std::string id;
  std::string subId;
};

/// Reads {"type":"handle","id":STRING,"subId":STRING} from a member of a payload. Success or the code of the
/// refusal.
Code ReadHandle(const KVMap& payload, const char* name, Handle& handle);

/// Whether a token was issued for this handle.
bool IsFor(const TokenClaim& claim, const Handle& handle);

}  // namespace CryptStand

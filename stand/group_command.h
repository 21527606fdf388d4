#pragma once

#include <string>

#include "stand/commands.h"

namespace CryptStand {

/// Reads "groupId" from a payload. The group must be known and the one that the token was issued for. Success
/// or the code of the refusal.
Code ReadGroup(const CommandContext& context, std::string& group);

}  // namespace CryptStand

#pragma once

#include <string>

#include "stand/commands.h"

namespace CryptStand {

/// Reads "groupId" from a payload: a known group, and the one that the token was handed out for. Success or
/// the code of the refusal.
Code ReadGroup(const CommandContext& context, std::string& group);

}  // namespace CryptStand

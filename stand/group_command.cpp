// The check that the commands for an existing group have in common.
#include "stand/group_command.h"

namespace CryptStand {

Code ReadGroup(const CommandContext& context, std::string& group) {
  const auto id = ReadText(context.payload, "groupId");
  if (!id.has_value()) return Code::InvalidPayload;
  if (!context.realm.store.HasGroup(*id)) return Code::KeyNotFound;
  if (context.claim.id != *id) return Code::AuthFailed;
  group = *id;
  return Code::Success;
}

}  // namespace CryptStand

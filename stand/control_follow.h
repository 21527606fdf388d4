#pragma once

#include "stand/control_routes.h"

namespace CryptStand {

/// GET /stand/v1/events/follow: events and changes of state as server-sent events, until the client or the
/// server ends the connection.
HttpReply FollowEvents(ControlCall& call);

}  // namespace CryptStand

#pragma once

#include <optional>

#include "stand/faults.h"
#include "stand/http.h"

namespace CryptStand {

/// The reply that a fault sends instead of the server's own, so that the request is not carried out. None for
/// a fault that changes the server's own reply.
std::optional<HttpReply> MakeFaultReply(const Fault& fault, bool isKeyServer);

/// Changes the server's own reply as the fault says. Faults of time, date or connection change nothing here.
void SpoilReply(const Fault& fault, HttpReply& reply);

}  // namespace CryptStand

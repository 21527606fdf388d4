#pragma once

#include <optional>

#include "stand/faults.h"
#include "stand/http.h"

namespace CryptStand {

/// The response that a fault gives in place of the server's own, so that the request is not carried out; none
/// for a fault that spoils the server's own response.
std::optional<HttpReply> MakeFaultReply(const Fault& fault, bool isKeyServer);

/// Spoils a response. Faults that concern time, date or the connection's life are not a matter of the
/// response and change nothing here.
void SpoilReply(const Fault& fault, HttpReply& reply);

}  // namespace CryptStand

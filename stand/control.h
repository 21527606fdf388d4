#pragma once

#include "stand/http.h"

namespace CryptStand {

class Stand;

/// Whether a request to the crypt service is for the test environment itself: its path begins with "stand".
bool IsControlRequest(const HttpRequest& request);

/// Serves the control path, so that scripts can do what tests do in their own process. Faults do not apply to
/// it.
///
///   POST stand/fault  {"server":,"fault":NAME,"operation":,"uses":,"number":,"text":}; a server is named by
///                     "crypt", or by the index or the URL of a key server; the fault "none" clears all
///   POST stand/room   {"room":,"locked":,"plainkey":,"certauth":,"group":,"certificate":"good"|"expired"|
///                     "foreign"|"wrong-issuer"}; an unknown room is created, in the default group unless
///                     another is named
///   POST stand/lists  {"certstore":TEXT,"truststore":TEXT,"integrity":"normal"|"empty"|"upper-case"|
///                     "without-ours"|"other-kinds"}; members left out or null return to normal
///   POST stand/clock  {"server":0,"seconds":} sets how far the server's clock is ahead
///   POST stand/audit  {"server":0,"rows":} sets how many made-up records its audit logs have
///   GET  stand/events the event log
///
/// A fault needs only "server" and "fault", a room only "room"; members left out of a room stay as they are.
/// Malformed requests get status 400, other paths 404, other methods 405.
HttpReply ServeControl(Stand& stand, const HttpRequest& request);

}  // namespace CryptStand

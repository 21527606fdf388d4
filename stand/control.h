#pragma once

#include "stand/http.h"

namespace CryptStand {

class Stand;

/// Whether a request to the crypt service is for the stand itself: its path begins with "stand".
bool IsControlRequest(const HttpRequest& request);

/// Serves the control path, so that scripts can do what tests do in the program. No fault concerns it.
///
///   POST stand/fault  {"server":0|"crypt","fault":NAME,"operation":,"uses":,"number":,"text":}; the name
///                     "none" takes all faults of the server back and brings it up
///   POST stand/room   {"room":,"locked":,"plainkey":,"certauth":,"certificate":"good"|"expired"|"foreign"|
///                     "wrong-issuer"}; a room that is not there is made
///   GET  stand/events the event log
///
/// Members but the first are optional. Malformed requests get status 400, other paths 404, other methods 405.
HttpReply ServeControl(Stand& stand, const HttpRequest& request);

}  // namespace CryptStand

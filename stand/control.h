#pragma once

#include "stand/http.h"

namespace CryptStand {

class Stand;

/// Whether a request to the crypt service is for the stand itself: its path begins with "stand".
bool IsControlRequest(const HttpRequest& request);

/// Serves the control path, so that scripts can do what tests do in the program. No fault concerns it.
///
///   POST stand/fault  {"server":,"fault":NAME,"operation":,"uses":,"number":,"text":}; a server is named by
///                     "crypt", or by the index or the URL of a key server; the fault "none" takes all back
///   POST stand/room   {"room":,"locked":,"plainkey":,"certauth":,"group":,"certificate":"good"|"expired"|
///                     "foreign"|"wrong-issuer"}; a room that is not there is made, in the stand's group
///                     unless another is named
///   POST stand/lists  {"certstore":TEXT,"truststore":TEXT,"integrity":"normal"|"empty"|"upper-case"|
///                     "without-ours"|"other-types"}; what is left out or null is put back to normal
///   POST stand/clock  {"server":0,"seconds":} sets how far the server's clock is ahead
///   POST stand/audit  {"server":0,"rows":} sets how many made-up records its audit logs have besides
///   GET  stand/events the event log
///
/// Of a fault only "server" and "fault" have to be there, of a room only "room"; what is left out of a room
/// stays as it is. Malformed requests get status 400, other paths 404, other methods 405.
HttpReply ServeControl(Stand& stand, const HttpRequest& request);

}  // namespace CryptStand

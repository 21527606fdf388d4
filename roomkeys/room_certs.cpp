// What the making of a room key needs from the crypt service: the certificates to wrap it for, and the
// upload.
#include "client/cryptcli.h"
#include "exchange/member_reader.h"

namespace OruKalvix {

bool CryptClient::FetchRoomCerts(AnsiStr& roomName, ValArray& certificates, AnsiStr& seqnr) noexcept {
  const AnsiStr url = GetServiceUrl("certlist", room, AnsiStr(), AnsiStr());
  if (url.IsEmpty()) return false;
  KVMap request;
  request.Put("keyserver", keyServerCursor.keyServerUrl);  // Empty before the first contact with one.
  KVMap object;
  if (!HttpPostJSON(url, request, KVMap(), object))
    return Fail("Could not get room certificates: %s", errorMessage.GetText());
  const MemberReader response(object);
  roomName = response.String("room");
  seqnr = response.String("seqnr");
  certificates = response.List("certificates");
  TakeConfiguration(object);
  return true;
}

// The sequence number of the certificate list goes back with the key: it says for which state of the room the
// key was made.
bool CryptClient::UploadRoomKey(const AnsiStr& key, const AnsiStr& seqnr) noexcept {
  const AnsiStr url = GetServiceUrl("newkey", room, AnsiStr(), AnsiStr());
  if (url.IsEmpty()) return false;
  KVMap request;
  request.Put("seqnr", seqnr);
  request.Put("key", key);
  KVMap response;  // Nothing in it matters: that the exchange succeeded is the service's consent.
  if (!HttpPostJSON(url, request, KVMap(), response))
    return Fail("Could not upload new room key: %s", errorMessage.GetText());
  return true;
}

}  // namespace OruKalvix

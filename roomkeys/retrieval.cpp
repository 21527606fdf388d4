// A room's key and the configuration that comes with it, from the crypt service. Encrypt asks for the current
// key, Decrypt for the key of the certificate that a file names.
#include "client/cryptcli.h"
#include "exchange/member_reader.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// The one refusal of the crypt service that an application can distinguish from all others, by keyErrorFlag.
constexpr const char* kKeyError = "QOB.1.1001.1.422645";

KVMap KeyByCertificate(const AnsiStr& issuer, const AnsiStr& serial) noexcept {
  KVMap id;
  id.Put("issuer", issuer);
  id.Put("serial", serial);
  KVMap request;
  request.Put("id", Val(id));
  return request;
}

// A certificate or key that cannot be parsed leaves its field empty: the caller then sees a room without a
// usable key, not an error, and Encrypt makes a new one.
void ReadRoomKey(const MemberReader& response, RoomKey& roomKey) noexcept {
  ClearRoomKey(roomKey);
  roomKey.room = response.String("room");
  const AnsiStr certificate = response.String("certificate");
  if (!certificate.IsEmpty()) roomKey.certificate.Load(certificate, OruOssSec::ASN1::Encoding::Text);
  roomKey.data = response.String("data");
  const AnsiStr plain = response.String("plain");
  if (!plain.IsEmpty()) roomKey.key.Load(plain, OruOssSec::ASN1::Encoding::Text);
}

}  // namespace

// The latest response replaces the whole configuration. Nothing is merged: a member that the response leaves
// out becomes empty, so that no key server or group of an earlier response stays in use.
void CryptClient::TakeConfiguration(const KVMap& object) noexcept {
  const MemberReader response(object);
  group = response.String("group");
  SetKeyServer(response.List("keyserver"));
  SetStatusTimeout(response.String("statustimeout"));
  certAuth = response.Flag("certauth");
}

// An error in the response counts before anything else is read, and changes neither room key nor
// configuration. Never lowers the flag: the operation does so once, at its beginning.
bool CryptClient::FetchRoomKey(RoomKey& roomKey, bool& keyErrorFlag, const AnsiStr& issuer,
                               const AnsiStr& serial) noexcept {
  const AnsiStr url = GetServiceUrl("key", room, AnsiStr(), AnsiStr());
  if (url.IsEmpty()) return false;
  KVMap object;
  const bool isCurrent = issuer.IsEmpty() && serial.IsEmpty();
  const bool isFetched = isCurrent ? HttpGetJSON(url, KVMap(), object)
                                   : HttpPostJSON(url, KeyByCertificate(issuer, serial), KVMap(), object);
  if (!isFetched) return Fail("Could not get room key: %s", errorMessage.GetText());
  const MemberReader response(object);
  const AnsiStr errorId = response.String("errorid");
  const AnsiStr errorText = response.String("errortext");
  if (errorId == kKeyError) {
    keyErrorFlag = true;
    return Fail("%s", errorText.GetText());
  }
  if (!errorId.IsEmpty() || !errorText.IsEmpty())
    return Fail("Could not get room key: %s", errorText.GetText());
  ReadRoomKey(response, roomKey);
  TakeConfiguration(object);
  return true;
}

}  // namespace OruKalvix

#include "client/cryptcli.h"
#include "exchange/member_reader.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// The one refusal of the crypt service that an application can tell from all others.
constexpr const char* kKeyError = "QOB.1.1001.1.422645";

KVMap KeyByCertificate(const AnsiStr& issuer, const AnsiStr& serial) noexcept {
  KVMap id;
  id.Put("issuer", issuer);
  id.Put("serial", serial);
  KVMap request;
  request.Put("id", Val(id));
  return request;
}

// Text that does not parse leaves its field empty: the caller then sees a room without a usable key, not an
// error.
void ReadRoomKey(const Answer& answer, RoomKey& roomKey) noexcept {
  ClearRoomKey(roomKey);
  roomKey.room = answer.String("room");
  const AnsiStr certificate = answer.String("certificate");
  if (!certificate.IsEmpty()) roomKey.certificate.Load(certificate, OruOssSec::ASN1::Encoding::Text);
  roomKey.data = answer.String("data");
  const AnsiStr plain = answer.String("plain");
  if (!plain.IsEmpty()) roomKey.key.Load(plain, OruOssSec::ASN1::Encoding::Text);
}

}  // namespace

// The key servers and how to talk to them are what the latest answer said, with no merging: what it leaves
// out is emptied.
void CryptClient::TakeConfiguration(const KVMap& object) noexcept {
  const Answer answer(object);
  group = answer.String("group");
  SetKeyServer(answer.List("keyserver"));
  SetStatusTimeout(answer.String("statustimeout"));
  certAuth = answer.Flag("certauth");
}

bool CryptClient::FetchRoomKey(RoomKey& roomKey, bool& keyErrorFlag, const AnsiStr& issuer,
                               const AnsiStr& serial) noexcept {
  const AnsiStr url = GetServiceUrl("key", room, AnsiStr(), AnsiStr());
  if (url.IsEmpty()) return false;
  KVMap object;
  const bool current = issuer.IsEmpty() && serial.IsEmpty();
  if (!(current ? HttpGetJSON(url, KVMap(), object)
                : HttpPostJSON(url, KeyByCertificate(issuer, serial), KVMap(), object))) {
    return Fail("Could not get room key: %s", errorMessage.GetText());
  }
  const Answer answer(object);
  const AnsiStr errorId = answer.String("errorid");
  const AnsiStr errorText = answer.String("errortext");
  if (errorId == kKeyError) {
    keyErrorFlag = true;
    return Fail("%s", errorText.GetText());
  }
  if (!errorId.IsEmpty() || !errorText.IsEmpty())
    return Fail("Could not get room key: %s", errorText.GetText());
  ReadRoomKey(answer, roomKey);
  TakeConfiguration(object);
  return true;
}

}  // namespace OruKalvix

#include "client/cryptcli.h"
#include "exchange/answer.h"
#include "exchange/functionref.h"
#include "exchange/keyservercommand.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

KVMap ExternalCertificate(const AnsiStr& text) noexcept {
  KVMap entry;
  entry.Set("type", "externalCertificate");
  entry.Set("encodedCertificate", text);
  return entry;
}

// One entry for each certificate; an element that is no text goes out empty, for the key server to judge.
Array<Val> EncryptionKeys(const Array<Val>& certificates) noexcept {
  Array<Val> entries;
  for (const Val& certificate : certificates)
    entries.Append(Val(ExternalCertificate(certificate.AsString())));
  return entries;
}

}  // namespace

bool CryptClient::KeyServerGenerateWrappedKey(const AnsiStr& forRoom, const ValArray& certificates,
                                              RoomKey& roomKey) noexcept {
  KeyServerRequest request{KeyServerCommand::GenerateWrappedKey, {}, forRoom, {}};
  request.payload.Set("type", GetRequestType(request.command));
  request.payload.Set("keyType", "");
  request.payload.Set("certificateSubject", AnsiStr("CN=") + forRoom + "-tr");
  request.payload.Set("encryptionKeys", Val(EncryptionKeys(certificates)));
  return RunCommand(request, [&](const KVMap& payload) noexcept {
    ClearRoomKey(roomKey);
    roomKey.room = forRoom;
    const AnsiStr certificate = Answer(payload).String("encodedX509Certificate");
    if (certificate.IsEmpty()) {
      SetError("Could not generate wrapped key: Invalid encodedX509Certificate");
      return false;
    }
    if (!roomKey.certificate.Load(certificate, OruOssSec::ASN1::Encoding::Text)) {
      SetError("Could not generate wrapped key: Could not decode encodedX509Certificate");
      return false;
    }
    roomKey.data = Answer(payload).String("encodedWrappedKey");
    if (roomKey.data.IsEmpty()) {
      SetError("Could not generate wrapped key: Invalid encodedWrappedKey");
      return false;
    }
    return true;
  });
}

}  // namespace OruKalvix

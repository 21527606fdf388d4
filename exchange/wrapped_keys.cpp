// The commands on wrapped keys: make one, wrap one again, unwrap one. Applications call CreateKey, UpdateKey
// and ExportKeys, directly or by name; Encrypt makes the key of a room that has none.
#include "client/cryptcli.h"
#include "exchange/external_certificate.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"

using OruGuiBase::Array;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// One entry for each certificate. An element that is not a string is sent empty, for the key server to
// refuse: a list that is silently shorter would leave a member of the room without the key.
Array<Val> EncryptionKeys(const Array<Val>& certificates) noexcept {
  Array<Val> entries;
  for (const Val& certificate : certificates)
    entries.Append(Val(ExternalCertificate(certificate.AsString())));
  return entries;
}

}  // namespace

bool CryptClient::KeyServerGenerateWrappedKey(const AnsiStr& forRoom, const ValArray& certificates,
                                              RoomKey& roomKey) noexcept {
  KeyServerRequest request(KeyServerCommand::GenerateWrappedKey, forRoom);
  request.payload.Put("keyType", "");
  request.payload.Put("certificateSubject", AnsiStr("CN=") + forRoom + "-tr");
  request.payload.Put("encryptionKeys", Val(EncryptionKeys(certificates)));
  return RunCommand(request, [&](const KVMap& payload) noexcept {
    ClearRoomKey(roomKey);  // A server before this one may have filled a part of it.
    roomKey.room = forRoom;
    const AnsiStr certificate = MemberReader(payload).String("encodedX509Certificate");
    if (certificate.IsEmpty()) return Fail("Could not generate wrapped key: Invalid encodedX509Certificate");
    if (!roomKey.certificate.Load(certificate, OruOssSec::ASN1::Encoding::Text))
      return Fail("Could not generate wrapped key: Could not decode encodedX509Certificate");
    roomKey.data = MemberReader(payload).String("encodedWrappedKey");
    if (roomKey.data.IsEmpty()) return Fail("Could not generate wrapped key: Invalid encodedWrappedKey");
    return true;
  });
}

bool CryptClient::KeyServerModifyWrappedKey(const AnsiStr& forRoom, const ValArray& certificates,
                                            const AnsiStr& wrappedKey, AnsiStr& newWrappedKey) noexcept {
  KeyServerRequest request(KeyServerCommand::ModifyWrappedKey, forRoom);
  request.payload.Put("encodedWrappedKey", wrappedKey);
  request.payload.Put("encryptionKeys", Val(EncryptionKeys(certificates)));
  return RunCommand(request, [&](const KVMap& payload) noexcept {
    newWrappedKey = MemberReader(payload).String("encodedWrappedKey");
    if (!newWrappedKey.IsEmpty()) return true;
    return Fail("Could not modify wrapped key: Invalid encodedWrappedKey");
  });
}

bool CryptClient::KeyServerExportWrappedKey(const AnsiStr& forRoom, const AnsiStr& wrappedKey,
                                            AnsiStr& privateKey) noexcept {
  KeyServerRequest request(KeyServerCommand::ExportWrappedKey, forRoom);
  request.payload.Put("encodedWrappedKey", wrappedKey);
  return RunCommand(request, [&](const KVMap& payload) noexcept {
    privateKey = MemberReader(payload).String("encodedPrivateKey");
    if (!privateKey.IsEmpty()) return true;
    return Fail("Could not decrypt room key: Invalid encodedPrivateKey");
  });
}

bool CryptClient::CreateKey(const AnsiStr& forRoom, const ValArray& certificates,
                            AnsiStr& wrappedKey) noexcept {
  RoomKey roomKey;
  if (!KeyServerGenerateWrappedKey(forRoom, certificates, roomKey)) return false;
  wrappedKey = roomKey.data;
  return true;
}

// Calls `work` for one key after another and appends each outcome, as the member `name`, to the result. The
// first failure ends it; outcomes before it stay in the result, because the key servers have done that work.
bool CryptClient::ForEachKey(const ValArray& keys, const char* name, ValArray& result,
                             FunctionRef<bool(const AnsiStr& data, AnsiStr& outcome)> work) noexcept {
  // The caller may have passed the same array as `keys` and `result`.
  const ValArray all = keys;  // NOLINT(performance-unnecessary-copy-initialization)
  for (const Val& entry : all) {
    const MemberReader key(entry.AsMap());
    const AnsiStr id = key.String("id");
    AnsiStr outcome;
    if (!work(key.String("data"), outcome)) return false;
    KVMap done;
    done.Put("id", id);
    done.Put(name, outcome);
    result.Append(Val(done));
  }
  return true;
}

bool CryptClient::UpdateKey(const AnsiStr& forRoom, const ValArray& certificates, const ValArray& keys,
                            ValArray& result) noexcept {
  return ForEachKey(keys, "data", result, [&](const AnsiStr& data, AnsiStr& outcome) noexcept {
    return KeyServerModifyWrappedKey(forRoom, certificates, data, outcome);
  });
}

bool CryptClient::ExportKeys(const AnsiStr& forRoom, const ValArray& keys, ValArray& result) noexcept {
  return ForEachKey(keys, "plain", result, [&](const AnsiStr& data, AnsiStr& outcome) noexcept {
    return KeyServerExportWrappedKey(forRoom, data, outcome);
  });
}

}  // namespace OruKalvix

// Encrypt: from a file to its protected form, a CMS EnvelopedData around a CMS SignedData. The signature is
// made on a key server, through the callback SignHash in sign.cpp.
#include "client/cryptcli.h"
#include "exchange/operation_file.h"
#include "exchange/url_segment.h"
#include "protection/attributes.h"
#include "security/cmsmsg.h"
#include "security/cryptomessagesyntax.h"

using OruGuiBase::datetime;
using OruGuiBase::KVMap;
using OruGuiBase::TempFile;
using OruOssSec::CMSMsg;
using OruOssSec::CryptoMessageSyntax;

namespace OruKalvix {

// Gets the room's key, and makes a new one when there is none or its origin cannot be proven. When the proof
// of a new key fails, the operation fails: a second attempt would make one key after another.
bool CryptClient::PrepareRoomKey(RoomKey& roomKey, bool& keyErrorFlag) noexcept {
  if (!FetchRoomKey(roomKey, keyErrorFlag, AnsiStr(), AnsiStr())) return false;
  if (roomKey.IsUsableForEncryption()) {
    if (ValidateRoomKey(roomKey)) return true;
    ClearRoomKey(roomKey);
  }
  return CreateRoomKey(roomKey);
}

// The upload comes before the proof: a new key that fails the proof has reached the crypt service all the
// same.
bool CryptClient::CreateRoomKey(RoomKey& roomKey) noexcept {
  AnsiStr roomName;
  ValArray certificates;
  AnsiStr seqnr;
  if (!FetchRoomCerts(roomName, certificates, seqnr)) return false;
  if (!KeyServerGenerateWrappedKey(roomName, certificates, roomKey)) return false;
  if (!UploadRoomKey(roomKey.data, seqnr)) return false;
  return ValidateRoomKey(roomKey);
}

// The signed attributes name these three, so a file without one of them could not be traced to its room. The
// group comes with the crypt service's response: the check has to follow the retrieval of the room key.
bool CryptClient::RequireUrlRoomAndGroup(const RoomKey& roomKey) noexcept {
  const char* missing = serviceUrl.IsEmpty()     ? "Invalid URL"
                        : roomKey.room.IsEmpty() ? "Invalid room"
                        : group.IsEmpty()        ? "Invalid group"
                                                 : nullptr;
  return missing == nullptr || Fail("%s", missing);
}

// The group decides who may sign (verify.cpp reads it); the other two show a reader where the file belongs.
KVMap CryptClient::GetSignedAttributes(const RoomKey& roomKey) const noexcept {
  AnsiStr roomUrl = serviceUrl;
  AppendSegment(roomUrl, "mx");
  AppendSegment(roomUrl, roomKey.room);
  KVMap attributes;
  attributes.Put(kGroupAttribute, group);
  attributes.Put(kRoomAttribute, roomKey.room);
  attributes.Put(kRoomUrlAttribute, roomUrl);
  return attributes;
}

// Signs into a temporary file and encrypts that file into the target. The source is read to its end before
// the target is touched, so both may be the same file. The signing time is that of a key server, whose clock
// the check of the signature uses too.
bool CryptClient::WriteProtectedFile(const RoomKey& roomKey, const KVMap& attributes, const File& source,
                                     const File& target) noexcept {
  TempFile signedFile;
  if (!CreateTempFile(signedFile, target.GetTail() + ".tmp", /*isPrivate=*/true)) {
    return FailWithSystemError("Could not create temporary file");
  }
  datetime time;
  GetKeyServerTime(time);
  if (!CryptoMessageSyntax::Sign(source, signedFile.GetFile(), integrityKey.certificate, this, attributes,
                                 &time)) {
    return FailWithSystemError("Could not sign file");
  }
  CMSMsg envelope;
  if (!envelope.CreateEnvelopedData(OruOssSec::CipherAlgorithm::AES256CBC)) {
    return FailWithSystemError("Could not create enveloped data");
  }
  if (!envelope.AddRecipient(roomKey.certificate)) return FailWithSystemError("Could not add recipient");
  return envelope.Save(CMSMsg::Format::BERStream, signedFile.GetFile(), target) ||
         FailWithSystemError("Could not encrypt file");
}

bool CryptClient::Encrypt(const File& source, const File& target, bool& keyErrorFlag) noexcept {
  keyErrorFlag = false;
  RoomKey roomKey;
  if (!PrepareRoomKey(roomKey, keyErrorFlag)) return false;
  if (!RequireUrlRoomAndGroup(roomKey)) return false;
  const KVMap attributes = GetSignedAttributes(roomKey);
  if (!KeyServerGetKey("integrity", AnsiStr(), integrityKey)) return false;
  return WriteProtectedFile(roomKey, attributes, source, target);
}

}  // namespace OruKalvix

// Decrypt: from a protected file to its content. Opens the outer CMS message (EnvelopedData) with the room's
// key and delivers what is inside; signed content goes on to verify.cpp.
#include "client/cryptcli.h"
#include "client/tracing.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "exchange/operation_file.h"
#include "foundation/encoding.h"
#include "security/cmsmsg.h"

using OruGuiBase::Array;
using OruGuiBase::PtrContainerQueue;
using OruGuiBase::TempFile;
using OruGuiBase::Val;
using OruOssSec::CMSKeyTransRecipient;
using OruOssSec::CMSMsg;

namespace OruKalvix {

// Lets a key server decrypt the content key of a file: the private key that can do it is wrapped for the key
// servers alone. The protocol takes a list of values; a file has one.
bool CryptClient::KeyServerDecrypt(const AnsiStr& wrappedKey, const AnsiStr& encryptedData,
                                   AnsiStr& plainData) noexcept {
  KVMap decryptionKey;
  decryptionKey.Put("type", "wrappedKey");
  decryptionKey.Put("encodedWrappedKey", wrappedKey);
  Array<Val> encrypted;
  encrypted.Append(Val(encryptedData));
  KeyServerRequest request(KeyServerCommand::Decrypt, room);
  request.payload.Put("decryptionKey", Val(decryptionKey));
  request.payload.Put("algorithm", "RSAES-PKCS1-v1_5");
  request.payload.Put("encryptedData", Val(encrypted));
  return RunCommand(request, [&](const KVMap& payload) noexcept {
    plainData = MemberReader(payload).FirstString("plainData");
    if (!plainData.IsEmpty()) return true;
    return Fail("Could not decrypt document key: Invalid plainData");
  });
}

// A protected file has exactly one recipient, the room's key. Any other number is refused before anybody is
// asked.
bool CryptClient::LoadEnvelope(const File& source, CMSMsg& envelope,
                               PtrContainerQueue<CMSKeyTransRecipient>& recipients) noexcept {
  if (!envelope.Load(source)) return FailWithSystemError("Could not parse encrypted file");
  if (envelope.GetType() != CMSMsg::Type::EnvelopedData)
    return Fail("Invalid content type %s", envelope.GetTypeStr().GetText());
  if (!envelope.GetRecipients(recipients))
    return FailWithSystemError("Could not read encrypted content keys");
  if (recipients.GetCount() != 1) return Fail("Could not get encrypted content key");
  return true;
}

// The recipient names the certificate by issuer and serial number (RFC 5652, section 10.2.4): the room may
// have got newer keys since the file was written.
bool CryptClient::FindRoomKey(const CMSKeyTransRecipient& recipient, RoomKey& roomKey) noexcept {
  bool keyErrorFlag = false;  // Decrypt has no such flag: its caller sees the message alone.
  if (!FetchRoomKey(roomKey, keyErrorFlag, recipient.issuer, recipient.serial)) return false;
  if (roomKey.certificate.IsEmpty() || (roomKey.data.IsEmpty() && roomKey.key.IsEmpty())) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::Decrypt: room=[%s] keyid=[%s/%s]", roomKey.room.GetText(),
                       recipient.serial.GetText(), recipient.issuer.GetText());
    return Fail("Could not find matching room key");
  }
  return true;
}

// A room key that came unwrapped takes precedence and needs no key server. Otherwise a key server decrypts
// the content key, and only that key is sent to it, never content.
bool CryptClient::UnlockEnvelope(const CMSKeyTransRecipient& recipient, const RoomKey& roomKey,
                                 CMSMsg& envelope) noexcept {
  if (!roomKey.key.IsEmpty()) {
    return envelope.SetRecipientKey(roomKey.certificate, roomKey.key) ||
           FailWithSystemError("Could not set recipient key");
  }
  const Blob& encryptedKey = recipient.encryptedKey;
  const AnsiStr encrypted =
      OruGuiBase::Binary2B64Str(encryptedKey.GetData(), encryptedKey.GetSize(), 0, "\r\n");
  AnsiStr contentKey;
  if (!KeyServerDecrypt(roomKey.data, encrypted, contentKey)) return false;
  return envelope.SetContentKey(contentKey) || FailWithSystemError("Could not set content key");
}

// The type of the content decides what happens to it. Content that is not a CMS message is plain content, not
// an error. But when reading fails before that is known, nothing is delivered: signed content must not pass
// for plain. A CMS message of another type, such as a large inner envelope, is delivered unopened.
bool CryptClient::DeliverContent(TempFile& content, const RoomKey& roomKey, const File& target,
                                 bool& isSigned, bool& isVerified) noexcept {
  CMSMsg inner;
  const CMSMsg::LoadResult loaded = inner.TryLoad(content.GetFile());
  if (loaded == CMSMsg::LoadResult::Unreadable) return FailWithSystemError("Could not decrypt file");
  const bool isMessage = loaded == CMSMsg::LoadResult::Loaded;
  if (isMessage && inner.GetType() == CMSMsg::Type::SignedData) {
    isSigned = true;
    return DeliverSigned(inner, roomKey, target, isVerified);
  }
  if (isMessage && inner.GetType() == CMSMsg::Type::DigestedData) {
    return inner.GetContent(target) || FailWithSystemError("Could not read digested content");
  }
  if (!content.GetFile().Move(target, /*keepTarget=*/false)) return Fail("Could not move temporary file");
  content.GiveUp();
  return true;
}

// The content is decrypted into a temporary file first, since its type is known only once it can be read; so
// the target is touched only when all of the content is there.
bool CryptClient::Decrypt(const File& source, const File& target, bool& isSigned, bool& isVerified) noexcept {
  isSigned = false;
  isVerified = false;
  CMSMsg envelope;
  PtrContainerQueue<CMSKeyTransRecipient> recipients;
  if (!LoadEnvelope(source, envelope, recipients)) return false;
  const CMSKeyTransRecipient& recipient = *recipients.GetFirst()->element;
  RoomKey roomKey;
  if (!FindRoomKey(recipient, roomKey)) return false;
  if (!UnlockEnvelope(recipient, roomKey, envelope)) return false;
  TempFile content;
  if (!CreateTempFile(content, source.GetTail() + ".tmp", /*isPrivate=*/true)) {
    return FailWithSystemError("Could not create temporary file");
  }
  if (!envelope.GetContent(content.GetFile())) return FailWithSystemError("Could not decrypt file");
  return DeliverContent(content, roomKey, target, isSigned, isVerified);
}

}  // namespace OruKalvix

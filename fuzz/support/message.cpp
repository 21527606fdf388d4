// The properties that hold for every CMS message, whatever bytes it was loaded from: checked by the targets
// cms_file and cms_text, and in part by others.
#include "fuzz/support/message.h"

#include <string>

#include "foundation/errorstate.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "security/certstore.h"

namespace Fuzz {
namespace {

using OruGuiBase::Blob;
using OruGuiBase::PtrContainerQueue;
using OruOssSec::CMSKeyTransRecipient;
using OruOssSec::CMSMsg;
using OruOssSec::CMSSigner;

constexpr const char* kContentFile = "content";

// Reads the content, which must be the same in memory and in a file. False if it cannot be read.
bool ReadContent(const CMSMsg& message, std::string& content) {
  Blob bytes;
  const bool isRead = message.GetContent(bytes);
  if (!isRead) RequireReason();
  Scratch& scratch = Scratch::Get();
  const bool isWritten = message.GetContent(scratch.File(kContentFile));
  if (!isWritten) RequireReason();
  Require(isRead == isWritten, "content that can be read can be written, and the other way round");
  content = Str(bytes);
  if (isRead) Require(scratch.Read(kContentFile) == content, "content is the same in memory and in a file");
  scratch.Remove(kContentFile);
  return isRead;
}

void CheckSigners(const CMSMsg& message, bool isVerified) {
  PtrContainerQueue<CMSSigner> signers;
  if (!message.GetSigners(signers)) {
    RequireReason();
    Require(!isVerified, "a verified message has signers that can be read");
    return;
  }
  Require(!isVerified || !signers.IsEmpty(), "a message without signers is not verified");
  for (const CMSSigner& signer : signers) {
    for (const OruGuiBase::Val& value : signer.signedAttributes.GetValues())
      Require(value.GetType() == OruGuiBase::ValType::String, "a signed attribute is a string");
  }
}

// Whether a key below the world's root has signed this content: only the group's content and the wrapped key.
bool IsGenuine(const std::string& content) {
  static const std::string wrapped = [] {
    CMSMsg message;
    Blob bytes;
    Require(message.Load(Ansi(World::Get().wrappedKey)) && message.GetContent(bytes),
            "the wrapped key opens");
    return Str(bytes);
  }();
  return content == kGenuineContent || content == wrapped;
}

// A signature that verifies up to the world's root is one that the world's keys have made.
void CheckSignatures(CMSMsg& message, bool hasContent, const std::string& content) {
  static const auto* const store = [] {
    auto* const made = new OruOssSec::CertStore;
    World::Fill(*made);
    return made;
  }();
  const bool isTrusted = message.Verify(*store);
  if (!isTrusted) RequireReason();
  const bool isVerified = message.Verify();
  if (!isVerified) RequireReason();
  Require(isVerified || !isTrusted, "a signature that a chain vouches for is a good one");
  Require(!isVerified || hasContent, "a verified message has its content");
  if (isTrusted) Require(IsGenuine(content), "only genuine content is verified");
  CheckSigners(message, isVerified);
}

void CheckRecipients(const CMSMsg& message) {
  PtrContainerQueue<CMSKeyTransRecipient> recipients;
  if (!message.GetRecipients(recipients)) RequireReason();
}

// A key block that cannot be decrypted gives a random key on purpose (RFC 3218), and a few random keys
// decrypt to valid padding: two readings of the same message may differ.
void OpenWithKey(CMSMsg& message) {
  const World& world = World::Get();
  static const OruOssSec::Certificate certificate = World::Load(world.room.certificate);
  static const OruOssSec::PrivateKey key = World::Load(world.room.key);
  Scratch& scratch = Scratch::Get();
  Blob content;
  if (!message.SetRecipientKey(certificate, key) || !message.GetContent(content)) RequireReason();
  if (!message.GetContent(scratch.File(kContentFile))) RequireReason();
  scratch.Remove(kContentFile);
}

// A wrong content key is refused or gives wrong content, but for one message always the same.
void OpenWithContentKey(CMSMsg& message) {
  constexpr const char* kKey256 = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
  if (!message.SetContentKey(kKey256)) {
    RequireReason();
    return;
  }
  std::string content;
  ReadContent(message, content);
}

}  // namespace

void RequireReason() {
  Require(OruGuiBase::GetLastError() != 0, "a failure leaves its reason");
  const std::string reason = Str(OruGuiBase::GetSystemErrorText());
  Require(!reason.empty() && reason != "Success", "the reason of a failure has a message");
}

void ExerciseMessage(CMSMsg& message) {
  Require(!message.GetTypeStr().IsEmpty(), "a message has a type");
  std::string content;
  const bool hasContent = ReadContent(message, content);
  CheckSignatures(message, hasContent, content);
  CheckRecipients(message);
  if (message.GetType() != CMSMsg::Type::EnvelopedData) return;
  Require(!hasContent, "an envelope is not read without a key");
  OpenWithKey(message);
  OpenWithContentKey(message);
}

}  // namespace Fuzz

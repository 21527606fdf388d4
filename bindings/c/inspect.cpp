// What a protected file says about itself: the JSON of cryptcli_inspect. No server is asked and nothing is
// verified, so anybody can have written every member. It uses the security library directly; the class has no
// function for this.
#include <memory>

#include "bindings/c/boundary.h"
#include "bindings/c/classify.h"
#include "bindings/c/file_ends.h"
#include "bindings/c/report.h"
#include "bindings/c/text.h"
#include "foundation/errorstate.h"
#include "foundation/queue.h"
#include "security/cmsmsg.h"
#include "security/cmsparties.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::PtrContainerQueue;
using OruGuiBase::Val;
using OruOssSec::CMSKeyTransRecipient;
using OruOssSec::CMSMsg;
using OruOssSec::CMSSigner;

namespace {

// Issuer and serial number name the certificate of a room's key (RFC 5652, section 6.2.1).
KVMap Describe(const CMSKeyTransRecipient& recipient) {
  KVMap object;
  SetText(object, "issuer", recipient.issuer.View());
  SetText(object, "serial", recipient.serial.View());
  return object;
}

// A message may leave out the certificate of its signer: then nobody knows the subject.
KVMap Describe(const CMSSigner& signer) {
  KVMap attributes;
  for (const auto& [oid, value] : signer.signedAttributes)
    SetText(attributes, oid.GetText(), value.AsString().View());
  KVMap object;
  AnsiStr subject;
  if (signer.certificate.GetSubject(subject)) SetText(object, "subject", subject.View());
  SetText(object, "signingTime", TimeText(signer.signingTime));
  object.Put("signedAttributes", Val(attributes));
  return object;
}

template <class Element>
Array<Val> DescribeAll(const PtrContainerQueue<Element>& queue) {
  Array<Val> values;
  for (auto* node = queue.GetFirst(); node != nullptr; node = node->next)
    values.Append(Val(Describe(*node->element)));
  return values;
}

// The signers of a protected file are inside of the envelope: to see them, it has to be decrypted first.
bool DescribeParties(const CMSMsg& message, KVMap& object) {
  if (message.GetType() == CMSMsg::Type::EnvelopedData) {
    PtrContainerQueue<CMSKeyTransRecipient> recipients;
    if (!message.GetRecipients(recipients)) return false;
    object.Put("recipients", Val(DescribeAll(recipients)));
  } else if (message.GetType() == CMSMsg::Type::SignedData) {
    PtrContainerQueue<CMSSigner> signers;
    if (!message.GetSigners(signers)) return false;
    object.Put("signers", Val(DescribeAll(signers)));
  }
  return true;
}

cryptcli_status Inspect(const cryptcli_file& from, cryptcli_report& report, cryptcli_error** error) {
  if (!IsNamed(from)) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No path or descriptor");
  Source source;
  CMSMsg message;
  KVMap object;
  if (!source.Open(from)) {
    const std::string reason = ToString(OruGuiBase::GetSystemErrorText());
    if (!source.HasNoCopy()) return Fail(error, CRYPTCLI_IO, "Could not read the file: " + reason);
    const std::string text = "Could not create a temporary file: " + reason;
    return Fail(error, Classify(text, {}), text);
  }
  if (!message.Load(source.GetFile()) || !DescribeParties(message, object)) {
    const std::string text = "Could not parse encrypted file: " + ToString(OruGuiBase::GetSystemErrorText());
    return Fail(error, Classify(text, /*exchange=*/{}), text);
  }
  report.bytes = source.GetSize();
  SetText(object, "type", message.GetTypeStr().View());
  object.Put("size", Val(static_cast<std::int64_t>(report.bytes)));
  object.Put("verified", Val(false));
  report.json = ToJson(object);
  return CRYPTCLI_OK;
}

}  // namespace

}  // namespace CryptCliC

cryptcli_status cryptcli_inspect(cryptcli_file source, cryptcli_report** report, cryptcli_error** error) {
  if (report != nullptr) *report = nullptr;
  return CryptCliC::Guarded(error, [&]() -> cryptcli_status {
    auto made = std::make_unique<cryptcli_report>();
    const cryptcli_status status = CryptCliC::Inspect(source, *made, error);
    if (status == CRYPTCLI_OK && report != nullptr) *report = made.release();
    return status;
  });
}

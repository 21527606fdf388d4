#include "security/cms/recipients.h"

#include <algorithm>
#include <memory>
#include <new>

#include "foundation/encoding.h"
#include "security/ber/walker.h"
#include "security/failure.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {

// RecipientInfos (RFC 5652, 6.2), of which we take
//
//   recipientInfos = SET { KeyTransRecipientInfo ... }
//   KeyTransRecipientInfo = SEQUENCE { version INTEGER, rid, keyEncryptionAlgorithm SEQUENCE,
//                                      encryptedKey OCTET STRING }
//   rid = SEQUENCE { issuer Name, serialNumber INTEGER }
//
// OpenSSL has no way to ask for an encrypted key.

CMSKeyTransRecipient::~CMSKeyTransRecipient() = default;

namespace {

bool TakeIssuer(BerWalker& walker, CMSKeyTransRecipient& recipient) noexcept {
  BerBuffer der;
  if (!walker.Take(kSequence, der)) return false;
  const unsigned char* position = der.GetData();
  const NamePtr name(d2i_X509_NAME(nullptr, &position, static_cast<long>(der.GetSize())));
  if (name == nullptr) return FailWithOpenSSL("The issuer of a recipient cannot be read");
  return NameToText(name.get(), recipient.issuer);
}

// OpenSSL's integer is the magnitude without a sign octet.
bool TakeSerial(BerWalker& walker, CMSKeyTransRecipient& recipient) noexcept {
  BerBuffer der;
  if (!walker.Take(kInteger, der)) return false;
  const unsigned char* position = der.GetData();
  const Asn1IntegerPtr serial(d2i_ASN1_INTEGER(nullptr, &position, static_cast<long>(der.GetSize())));
  if (serial == nullptr) return FailWithOpenSSL("The serial number of a recipient cannot be read");
  recipient.serial =
      OruGuiBase::Binary2B16Str(ASN1_STRING_get0_data(serial.get()),
                                static_cast<std::uint32_t>(ASN1_STRING_length(serial.get())), true);
  return true;
}

// The octets of a small octet string, in segments or not.
bool TakeKey(BerWalker& walker, const BerBuffer& bytes, CMSKeyTransRecipient& recipient) noexcept {
  BerOctets octets;
  if (!walker.SkipOctets(kOctetString, octets)) return false;
  if (octets.length == 0) return true;
  std::uint8_t* target = recipient.encryptedKey.Alloc(static_cast<std::uint32_t>(octets.length));
  if (target == nullptr) return FailWithoutMemory();
  ViewSource source(bytes.GetData(), bytes.GetSize());
  BerContent content(source, octets);
  BerSpan span;
  do {
    if (!content.Next(span)) return false;
    target = std::copy_n(span.data, span.size, target);
  } while (span.size > 0);
  return true;
}

bool TakeRecipient(BerWalker& walker, const BerBuffer& bytes, CMSKeyTransRecipient& recipient) noexcept {
  if (!walker.Is(kSequence)) return FailWith("A recipient of the message is not of the key transport kind");
  BerBuffer passed;
  walker.Enter(kSequence);
  walker.Take(kInteger, passed);
  if (!walker.IsFailed() && !walker.Is(kSequence)) {
    return FailWith("A recipient of the message is not named by issuer and serial number");
  }
  return walker.Enter(kSequence) && TakeIssuer(walker, recipient) && TakeSerial(walker, recipient) &&
         walker.Leave() && walker.Take(kSequence, passed) && TakeKey(walker, bytes, recipient) &&
         walker.Leave();
}

}  // namespace

bool ReadRecipients(const CmsSkeleton& skeleton,
                    OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) noexcept {
  if (skeleton.type != CMSMsg::Type::EnvelopedData) return FailWith("The message is not an enveloped one");
  const BerBuffer& bytes = skeleton.before;
  ViewSource source(bytes.GetData(), bytes.GetSize());
  BerReader reader(source);
  BerWalker walker(reader);
  walker.SkipAny();
  if (walker.Is(kContext0)) walker.SkipAny();
  if (!walker.Enter(kSet)) return false;
  while (!walker.IsAtEnd()) {
    std::unique_ptr<CMSKeyTransRecipient> recipient(new (std::nothrow) CMSKeyTransRecipient);
    if (recipient == nullptr) return FailWithoutMemory();
    if (!TakeRecipient(walker, bytes, *recipient)) return false;
    if (!recipients.Append(recipient.release())) return FailWithoutMemory();
  }
  return walker.Leave() && walker.Finish();
}

}  // namespace OruOssSec

// Fills the public values of cmsparties.h from a loaded message: its recipients for whoever looks for a key,
// its signers for whoever checks them. Nothing here is verified; VerifySigners does that.
#include "security/cms/parties.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <new>
#include <set>
#include <string_view>

#include "foundation/encoding.h"
#include "security/ber/walker.h"
#include "security/failure.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {

namespace {

using OruGuiBase::AnsiStr;

// RecipientInfos (RFC 5652, 6.2), of which we read
//
//   recipientInfos = SET { KeyTransRecipientInfo ... }
//   KeyTransRecipientInfo = SEQUENCE { version INTEGER, rid, keyEncryptionAlgorithm SEQUENCE,
//                                      encryptedKey OCTET STRING }
//   rid = SEQUENCE { issuer Name, serialNumber INTEGER }
//
// They are read from the skeleton, since OpenSSL has no function that returns an encrypted key.

bool TakeIssuer(BerWalker& walker, CMSKeyTransRecipient& recipient) noexcept {
  BerBuffer der;
  if (!walker.Take(kSequence, der)) return false;
  const unsigned char* position = der.GetData();
  const NamePtr name(d2i_X509_NAME(nullptr, &position, static_cast<long>(der.GetSize())));
  if (name == nullptr) return FailWithOpenSSL("The issuer of a recipient cannot be read");
  return NameToText(name.get(), recipient.issuer);
}

// OpenSSL's integer is the magnitude, without the sign octet that a serial number of full length has in DER.
bool TakeSerial(BerWalker& walker, CMSKeyTransRecipient& recipient) noexcept {
  BerBuffer der;
  if (!walker.Take(kInteger, der)) return false;
  const unsigned char* position = der.GetData();
  const Asn1IntegerPtr serial(d2i_ASN1_INTEGER(nullptr, &position, static_cast<long>(der.GetSize())));
  if (serial == nullptr) return FailWithOpenSSL("The serial number of a recipient cannot be read");
  recipient.serial = OruGuiBase::Binary2B16Str(ASN1_STRING_get0_data(serial.get()),
                                               static_cast<std::uint32_t>(ASN1_STRING_length(serial.get())),
                                               /*upperCase=*/true);
  return true;
}

// Takes the encrypted key, which may be in segments too. It is part of the skeleton, so its size is limited.
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
  if (!walker.Is(kSequence)) return FailWith("A recipient of the message is not of the key transport type");
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

// The string types that OpenSSL converts to UTF-8.
bool IsString(int type) noexcept {
  constexpr unsigned long kStringTypes = B_ASN1_UTF8STRING | B_ASN1_PRINTABLESTRING | B_ASN1_T61STRING |
                                         B_ASN1_IA5STRING | B_ASN1_BMPSTRING | B_ASN1_UNIVERSALSTRING |
                                         B_ASN1_NUMERICSTRING | B_ASN1_VISIBLESTRING;
  return (ASN1_tag2bit(type) & kStringTypes) != 0;
}

bool ReadString(const ASN1_STRING* value, AnsiStr& text) noexcept {
  unsigned char* bytes = nullptr;
  const int size = ASN1_STRING_to_UTF8(&bytes, value);
  if (size < 0) return FailWithOpenSSL("The string of a signed attribute cannot be read");
  const DerPtr owned(bytes);
  text = AnsiStr(reinterpret_cast<const char*>(bytes), static_cast<std::uint32_t>(size));
  return true;
}

// Takes the contents octets of any other value, without its header, as hexadecimal.
bool ReadOctets(const ASN1_TYPE* value, AnsiStr& text) noexcept {
  unsigned char* der = nullptr;
  const int size = i2d_ASN1_TYPE(value, &der);
  const DerPtr owned(der);
  if (size <= 0) return FailWithOpenSSL("A signed attribute cannot be encoded");
  ViewSource source(der, static_cast<std::uint64_t>(size));
  BerReader reader(source);
  BerHeader header;
  if (!reader.ReadHeader(0, source.GetSize(), header)) return false;
  text = OruGuiBase::Binary2B16Str(der + header.size, static_cast<std::uint32_t>(size) - header.size,
                                   /*upperCase=*/true);
  return true;
}

bool ReadValue(X509_ATTRIBUTE* attribute, AnsiStr& text) noexcept {
  const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr) return FailWith("A signed attribute has no value");
  const int type = ASN1_TYPE_get(value);
  return IsString(type) ? ReadString(value->value.asn1_string, text) : ReadOctets(value, text);
}

// RFC 5652, 5.3 forbids two attributes of one type: a reader that takes the first and one that takes the last
// would see different signatures.
bool IsEachOnce(const CMS_SignerInfo* signer) noexcept try {
  std::set<std::string_view> seen;
  const int count = CMS_signed_get_attr_count(signer);
  for (int i = 0; i < count; ++i) {
    const ASN1_OBJECT* oid = X509_ATTRIBUTE_get0_object(CMS_signed_get_attr(signer, i));
    const std::string_view bytes(reinterpret_cast<const char*>(OBJ_get0_data(oid)), OBJ_length(oid));
    if (!seen.insert(bytes).second) return FailWith("A signed attribute occurs twice");
  }
  return true;
} catch (const std::bad_alloc&) {
  return FailWithoutMemory();
}

// An attribute with several values is left out, as it is not clear which one counts. None of ours has
// several.
bool ReadAttributes(const CMS_SignerInfo* signer, OruGuiBase::KVMap& attributes) noexcept {
  const int count = CMS_signed_get_attr_count(signer);
  for (int i = 0; i < count; ++i) {
    X509_ATTRIBUTE* attribute = CMS_signed_get_attr(signer, i);
    if (X509_ATTRIBUTE_count(attribute) != 1) continue;
    const AnsiStr oid = GetDottedText(X509_ATTRIBUTE_get0_object(attribute));
    AnsiStr text;
    if (!ReadValue(attribute, text)) return false;
    if (!attributes.Set(oid, text)) return FailWithoutMemory();
  }
  return true;
}

bool ReadSigner(CMS_SignerInfo* info, STACK_OF(X509) * certificates, CMSSigner& signer) noexcept {
  if (X509* certificate = FindSignerCertificate(info, certificates)) {
    X509_up_ref(certificate);
    signer.certificate = Certificate(certificate);
  }
  return ReadSigningTime(info, signer.signingTime) && IsEachOnce(info) &&
         ReadAttributes(info, signer.signedAttributes);
}

}  // namespace

// Defined in the one source that creates recipients, so that their vtable is in the library.
CMSKeyTransRecipient::~CMSKeyTransRecipient() = default;

bool ReadRecipients(const CmsSkeleton& skeleton,
                    OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) noexcept {
  if (skeleton.type != CMSMsg::Type::EnvelopedData) return FailWith("The message is not an enveloped one");
  const BerBuffer& bytes = skeleton.before;
  ViewSource source(bytes.GetData(), bytes.GetSize());
  BerReader reader(source);
  BerWalker walker(reader);
  walker.SkipAny();                            // version
  if (walker.Is(kContext0)) walker.SkipAny();  // originatorInfo
  if (!walker.Enter(kSet)) return false;
  while (!walker.IsAtEnd()) {
    std::unique_ptr<CMSKeyTransRecipient> recipient(new (std::nothrow) CMSKeyTransRecipient);
    if (recipient == nullptr) return FailWithoutMemory();
    if (!TakeRecipient(walker, bytes, *recipient)) return false;
    if (!recipients.Append(recipient.release())) return FailWithoutMemory();
  }
  return walker.Leave() && walker.Finish();
}

X509* FindSignerCertificate(CMS_SignerInfo* signer, STACK_OF(X509) * certificates) noexcept {
  for (int i = 0; i < sk_X509_num(certificates); ++i) {
    X509* certificate = sk_X509_value(certificates, i);
    if (CMS_SignerInfo_cert_cmp(signer, certificate) == 0) return certificate;
  }
  return nullptr;
}

bool ReadSigningTime(CMS_SignerInfo* signer, OruGuiBase::DateTime& time) noexcept {
  time = OruGuiBase::DateTime();
  // One attribute with one value (RFC 5652, 11.3); its time may be of either ASN.1 type.
  const int place = CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, -1);
  if (place < 0) return true;
  X509_ATTRIBUTE* attribute = CMS_signed_get_attr(signer, place);
  const bool isOnly = CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, place) < 0 &&
                      X509_ATTRIBUTE_count(attribute) == 1;
  const ASN1_TYPE* value = isOnly ? X509_ATTRIBUTE_get0_type(attribute, 0) : nullptr;
  const int type = value != nullptr ? ASN1_TYPE_get(value) : V_ASN1_UNDEF;
  std::tm fields = {};
  if ((type != V_ASN1_UTCTIME && type != V_ASN1_GENERALIZEDTIME) ||
      ASN1_TIME_to_tm(value->value.asn1_string, &fields) != 1) {
    return FailWith("The signing time of a signer cannot be read");
  }
  time = {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
          fields.tm_hour,        fields.tm_min,     fields.tm_sec};
  return true;
}

bool ReadSigners(const LoadedMessage& message, OruGuiBase::PtrContainerQueue<CMSSigner>& signers) noexcept {
  if (message.skeleton.type != CMSMsg::Type::SignedData) return FailWith("The message is not a signed one");
  STACK_OF(CMS_SignerInfo)* infos = CMS_get0_SignerInfos(message.cms.get());
  const CertStackPtr certificates(CMS_get1_certs(message.cms.get()));
  for (int i = 0; i < sk_CMS_SignerInfo_num(infos); ++i) {
    std::unique_ptr<CMSSigner> signer(new (std::nothrow) CMSSigner);
    if (signer == nullptr) return FailWithoutMemory();
    if (!ReadSigner(sk_CMS_SignerInfo_value(infos, i), certificates.get(), *signer)) return false;
    if (!signers.Append(signer.release())) return FailWithoutMemory();
  }
  return true;
}

}  // namespace OruOssSec

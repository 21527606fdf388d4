#include "security/cms/types.h"

#include <string_view>

#include "security/failure.h"

namespace OruOssSec {

namespace {

struct ContentType {
  std::string_view oid;
  CMSMsg::Type type;
  const char* name;
};

// pkcs-7 (1.2.840.113549.1.7) and its arc smime-ct (1.2.840.113549.1.9.16.1).
#define PKCS7 "\x2A\x86\x48\x86\xF7\x0D\x01\x07"
#define SMIME_CT "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x01"

constexpr ContentType kContentTypes[] = {
    {PKCS7 "\x01", CMSMsg::Type::Data, "data"},
    {PKCS7 "\x02", CMSMsg::Type::SignedData, "signedData"},
    {PKCS7 "\x03", CMSMsg::Type::EnvelopedData, "envelopedData"},
    {PKCS7 "\x05", CMSMsg::Type::DigestedData, "digestedData"},
    {PKCS7 "\x06", CMSMsg::Type::EncryptedData, "encryptedData"},
    {SMIME_CT "\x02", CMSMsg::Type::AuthenticatedData, "authenticatedData"},
    {SMIME_CT "\x09", CMSMsg::Type::CompressedData, "compressedData"},
    {SMIME_CT "\x17", CMSMsg::Type::AuthEnvelopedData, "authEnvelopedData"},
};

#undef PKCS7
#undef SMIME_CT

const ContentType* Find(const BerBuffer& oid) noexcept {
  const std::string_view wanted(reinterpret_cast<const char*>(oid.GetData()), oid.GetSize());
  for (const ContentType& entry : kContentTypes) {
    if (entry.oid == wanted) return &entry;
  }
  return nullptr;
}

}  // namespace

CMSMsg::Type FindContentType(const BerBuffer& oid) noexcept {
  const ContentType* entry = Find(oid);
  return entry != nullptr ? entry->type : CMSMsg::Type::Unknown;
}

OruGuiBase::AnsiStr GetDottedText(const ASN1_OBJECT* object) noexcept {
  const int length = OBJ_obj2txt(nullptr, 0, object, 1);
  if (length <= 0) return {};
  OruGuiBase::AnsiStr text;
  // OBJ_obj2txt ends its text with a NUL, for which the string has room behind its characters.
  char* buffer = text.Alloc(static_cast<std::uint32_t>(length));
  if (buffer == nullptr || OBJ_obj2txt(buffer, length + 1, object, 1) != length) return {};
  return text;
}

bool GetContentTypeName(const BerBuffer& oid, OruGuiBase::AnsiStr& name) noexcept {
  if (const ContentType* entry = Find(oid)) {
    name = entry->name;
    return true;
  }
  BerBuffer der;
  if (!der.AppendHeader(0x06, oid.GetSize()) || !der.Append(oid)) return false;
  const std::uint8_t* position = der.GetData();
  const ObjectPtr object(d2i_ASN1_OBJECT(nullptr, &position, static_cast<long>(der.GetSize())));
  if (object == nullptr) return FailWith("The content type of the message is not an object identifier");
  name = GetDottedText(object.get());
  return !name.IsEmpty() || FailWith("The content type of the message has no text");
}

}  // namespace OruOssSec

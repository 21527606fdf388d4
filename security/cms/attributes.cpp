#include "security/cms/attributes.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "foundation/dates.h"
#include "foundation/encoding.h"
#include "foundation/format.h"
#include "security/cmslimits.h"
#include "security/failure.h"

namespace OruOssSec {

namespace {

using OruGuiBase::AnsiStr;

constexpr const char* kNotAdded = "A signed attribute cannot be added";

// The attributes that every signature of ours has by itself, or may have.
bool IsOurs(const ASN1_OBJECT* object) noexcept {
  const int nid = OBJ_obj2nid(object);
  return nid == NID_pkcs9_contentType || nid == NID_pkcs9_messageDigest || nid == NID_pkcs9_signingTime;
}

bool AddText(CMS_SignerInfo* signer, const AnsiStr& oid, const OruGuiBase::Val& value) noexcept {
  const ObjectPtr object(OBJ_txt2obj(oid.GetText(), 1));
  if (object == nullptr) return FailWith("A signed attribute is not named by an object identifier");
  if (value.GetType() != OruGuiBase::ValType::String) return FailWith("A signed attribute is not a text");
  const AnsiStr text = value.AsString();
  if (!OruGuiBase::IsValidUTF8(text.GetText(), text.GetLength())) {
    return FailWith("A signed attribute is not UTF-8");
  }
  if (IsOurs(object.get()) || CMS_signed_get_attr_by_OBJ(signer, object.get(), -1) >= 0) {
    return FailWith("A signed attribute is given twice");
  }
  return CMS_signed_add1_attr_by_OBJ(signer, object.get(), V_ASN1_UTF8STRING, text.GetText(),
                                     static_cast<int>(text.GetLength())) == 1 ||
         FailWithOpenSSL(kNotAdded);
}

// One encoded attribute within the buffer that holds them all.
struct Encoded {
  std::size_t offset = 0;
  std::size_t size = 0;
};

bool AppendAttribute(X509_ATTRIBUTE* attribute, BerBuffer& all, Encoded& place) noexcept {
  unsigned char* der = nullptr;
  const int size = i2d_X509_ATTRIBUTE(attribute, &der);
  const DerPtr owned(der);
  if (size <= 0) return FailWithOpenSSL("A signed attribute cannot be encoded");
  place = {all.GetSize(), static_cast<std::size_t>(size)};
  return all.Append(der, place.size);
}

// The order of a DER SET OF (X.690, 11.6): as octet strings, a shorter one first where it begins another.
void SortEncoded(const BerBuffer& all, Encoded* places, std::size_t count) noexcept {
  std::sort(places, places + count, [&all](const Encoded& a, const Encoded& b) {
    const int order =
        std::memcmp(all.GetData() + a.offset, all.GetData() + b.offset, std::min(a.size, b.size));
    return order != 0 ? order < 0 : a.size < b.size;
  });
}

}  // namespace

bool AddContentType(CMS_SignerInfo* signer) noexcept {
  return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_contentType, V_ASN1_OBJECT,
                                     OBJ_nid2obj(NID_pkcs7_data), -1) == 1 ||
         FailWithOpenSSL(kNotAdded);
}

bool AddMessageDigest(CMS_SignerInfo* signer, const OruGuiBase::BlobConst& digest) noexcept {
  return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, digest.data,
                                     static_cast<int>(digest.size)) == 1 ||
         FailWithOpenSSL(kNotAdded);
}

bool AddSigningTime(CMS_SignerInfo* signer, const OruGuiBase::DateTime& time) noexcept {
  if (!OruGuiBase::IsValidDateTime(time) || time.year > 9999) return FailWith("The signing time is invalid");
  const bool isShort = time.year >= 1950 && time.year <= 2049;
  const AnsiStr year =
      isShort ? OruGuiBase::FmtArgs("%02d", time.year % 100) : OruGuiBase::FmtArgs("%04d", time.year);
  const AnsiStr text = year + OruGuiBase::FmtArgs("%02d%02d%02d%02d%02dZ", time.month, time.day, time.hour,
                                                  time.minute, time.second);
  return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime,
                                     isShort ? V_ASN1_UTCTIME : V_ASN1_GENERALIZEDTIME, text.GetText(),
                                     static_cast<int>(text.GetLength())) == 1 ||
         FailWithOpenSSL(kNotAdded);
}

bool AddTextAttributes(CMS_SignerInfo* signer, const OruGuiBase::KVMap& attributes) noexcept {
  // What we write we read: beside these there are the content type, the digest and the signing time.
  constexpr std::uint32_t kOthers = 3;
  if (attributes.GetCount() > CMSLimits::kAttributes - kOthers) {
    return FailWith("The signer has too many signed attributes");
  }
  for (std::uint32_t i = 0; i < attributes.GetCount(); ++i) {
    if (!AddText(signer, attributes.GetKeys()[i], attributes.GetValues()[i])) return false;
  }
  return true;
}

bool EncodeSignedAttributes(const CMS_SignerInfo* signer, BerBuffer& encoded) noexcept {
  const int count = CMS_signed_get_attr_count(signer);
  if (count <= 0) return FailWith("The signer has no signed attributes");
  const std::unique_ptr<Encoded[]> places(new (std::nothrow) Encoded[static_cast<std::size_t>(count)]);
  if (places == nullptr) return FailWithoutMemory();
  BerBuffer all;
  for (int i = 0; i < count; ++i) {
    if (!AppendAttribute(CMS_signed_get_attr(signer, i), all, places[static_cast<std::size_t>(i)]))
      return false;
  }
  SortEncoded(all, places.get(), static_cast<std::size_t>(count));
  if (!encoded.AppendHeader(V_ASN1_SET | V_ASN1_CONSTRUCTED, all.GetSize())) return false;
  for (int i = 0; i < count; ++i) {
    const Encoded& place = places[static_cast<std::size_t>(i)];
    if (!encoded.Append(all.GetData() + place.offset, place.size)) return false;
  }
  return true;
}

}  // namespace OruOssSec

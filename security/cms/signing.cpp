// Implements CryptoMessageSyntax::Sign (security/cryptomessagesyntax.h): writes SignedData (RFC 5652, 5) with
// a key that is elsewhere. The order is fixed by that: the content is written and hashed first, then the hash
// of the signed attributes goes to the signer, then the end of the message is written.
//
// OpenSSL builds the structure only. It could neither stream the content nor ask somebody else to sign.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <openssl/crypto.h>
#include <openssl/rsa.h>

#include "foundation/blob.h"
#include "foundation/dates.h"
#include "foundation/encoding.h"
#include "foundation/errorstate.h"
#include "foundation/format.h"
#include "security/ber/buffer.h"
#include "security/ber/source.h"
#include "security/cms/digest.h"
#include "security/cms/sink.h"
#include "security/cmslimits.h"
#include "security/cryptomessagesyntax.h"
#include "security/failure.h"
#include "security/x509/strength.h"

namespace OruOssSec {

namespace {

using OruGuiBase::AnsiStr;

constexpr const char* kHash = "SHA512";
constexpr const char* kNoHash = "SHA-512 is not available";
constexpr const char* kNotHashed = "The hash cannot be computed";

constexpr const char* kNotAdded = "A signed attribute cannot be added";

// The attributes that Sign adds itself. A caller may not give them.
bool IsOurs(const ASN1_OBJECT* object) noexcept {
  const int nid = OBJ_obj2nid(object);
  return nid == NID_pkcs9_contentType || nid == NID_pkcs9_messageDigest || nid == NID_pkcs9_signingTime;
}

bool AddText(CMS_SignerInfo* signer, const AnsiStr& oid, const OruGuiBase::Val& value) noexcept {
  const ObjectPtr object(OBJ_txt2obj(oid.GetText(), 1));
  if (object == nullptr) return FailWith("A signed attribute is not named by an object identifier");
  if (value.GetType() != OruGuiBase::ValType::String) return FailWith("A signed attribute is not a string");
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

// The place of one encoded attribute in the buffer that contains all of them.
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

// Sorts as a DER SET OF demands (X.690, 11.6): as octet strings, a prefix before what it begins.
void SortEncoded(const BerBuffer& all, Encoded* places, std::size_t count) noexcept {
  std::sort(places, places + count, [&all](const Encoded& a, const Encoded& b) {
    const int order =
        std::memcmp(all.GetData() + a.offset, all.GetData() + b.offset, std::min(a.size, b.size));
    return order != 0 ? order < 0 : a.size < b.size;
  });
}

// Adds the content type (RFC 5652, 11.1), that of plain data.
bool AddContentType(CMS_SignerInfo* signer) noexcept {
  return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_contentType, V_ASN1_OBJECT,
                                     OBJ_nid2obj(NID_pkcs7_data), -1) == 1 ||
         FailWithOpenSSL(kNotAdded);
}

// Adds the digest of the content (11.2).
bool AddMessageDigest(CMS_SignerInfo* signer, const OruGuiBase::BlobConst& digest) noexcept {
  return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, digest.data,
                                     static_cast<int>(digest.size)) == 1 ||
         FailWithOpenSSL(kNotAdded);
}

// Adds the signing time (11.3): UTCTime from 1950 to 2049, as the RFC demands, GeneralizedTime otherwise.
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

// Adds strings by OID as UTF8String. An OID that is there already is a failure.
bool AddTextAttributes(CMS_SignerInfo* signer, const OruGuiBase::KVMap& attributes) noexcept {
  // Content type, digest and signing time count too: a message that we write must be one that we read.
  constexpr std::uint32_t kOthers = 3;
  if (attributes.GetCount() > CMSLimits::kAttributes - kOthers) {
    return FailWith("The signer has too many signed attributes");
  }
  for (const auto& [oid, value] : attributes) {
    if (!AddText(signer, oid, value)) return false;
  }
  return true;
}

// Encodes what the signature is over (5.4): the signed attributes as a DER SET OF.
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

// One SignedData in progress. Lives for one call of Sign; the functions are called in their order here.
class Signing {
 public:
  explicit Signing(const OruGuiBase::File& target) noexcept : writer_(target, frame_) {}
  bool Begin(const Certificate& certificate, const OruGuiBase::KVMap& attributes,
             const OruGuiBase::DateTime* time) noexcept;
  bool WriteContent(const OruGuiBase::File& content) noexcept;
  bool SignAttributes(ISignHash& signer) noexcept;
  bool Finish() noexcept;

 private:
  bool CopyContent(FileSource& input) noexcept;
  bool CheckSignature(const OruGuiBase::BlobConst& hash, const OruGuiBase::Blob& signature) const noexcept;

  CmsPtr cms_;
  EVP_PKEY* key_ = nullptr;           // belongs to the certificate
  CMS_SignerInfo* signer_ = nullptr;  // belongs to cms_
  CmsSkeleton frame_;                 // what writer_ writes around the content
  CmsWriter writer_;
  Digest content_;
};

bool Signing::Begin(const Certificate& certificate, const OruGuiBase::KVMap& attributes,
                    const OruGuiBase::DateTime* time) noexcept {
  key_ = X509_get0_pubkey(certificate.Get0());
  if (key_ == nullptr) return FailWithOpenSSL("The signer's key cannot be read");
  if (EVP_PKEY_is_a(key_, "RSA") != 1) return FailWith("The signer's key is not an RSA key");
  if (HasShortKey(certificate.Get0())) return FailWith("The signer's RSA key has fewer than 2048 bits");
  if (!content_.Begin(kHash)) return FailWithOpenSSL(kNoHash);
  constexpr unsigned int kFlags = CMS_PARTIAL | CMS_DETACHED | CMS_BINARY | CMS_NOSMIMECAP;
  cms_.reset(CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags));
  if (cms_ == nullptr) return FailWithOpenSSL("The signed message cannot be made");
  signer_ = CMS_add1_signer(cms_.get(), certificate.Get0(), key_, content_.GetAlgorithm(), kFlags);
  if (signer_ == nullptr) return FailWithOpenSSL("The signer cannot be added");
  return AddContentType(signer_) && (time == nullptr || AddSigningTime(signer_, *time)) &&
         AddTextAttributes(signer_, attributes);
}

bool Signing::CopyContent(FileSource& input) noexcept {
  std::uint32_t got = 0;
  do {
    if (!input.ReadNext(writer_.GetBuffer(), writer_.GetMissing(), got)) return false;
    if (!content_.Add(writer_.GetBuffer(), got)) return FailWithOpenSSL(kNotHashed);
    if (!writer_.Commit(got)) return false;
  } while (!input.IsAtEnd());
  return true;
}

bool Signing::WriteContent(const OruGuiBase::File& content) noexcept {
  FileSource input;
  const bool isWritten = input.Open(content, FileSource::Access::Onwards) &&
                         ReadSkeleton(cms_.get(), frame_) && writer_.Begin(input.GetSize()) &&
                         CopyContent(input);
  if (!isWritten) return false;
  if (!content_.Finish()) return FailWithOpenSSL(kNotHashed);
  return AddMessageDigest(signer_, content_.GetValue());
}

// Asks the caller's signer, whose reason is kept when it fails. When it succeeds, the error state is cleared:
// a reason in it, such as that of a first attempt, is no failure of ours. An exception must not cross the
// library's boundary, so it counts as false.
bool AskSigner(ISignHash& signer, const OruGuiBase::BlobConst& hash, OruGuiBase::Blob& signature) noexcept {
  OruGuiBase::ClearLastError();
  bool isSigned = false;
  try {
    isSigned = signer.SignHash(hash, signature);
  } catch (...) {
    isSigned = false;
  }
  ERR_clear_error();
  if (!isSigned) return FailWith("The signer did not sign the hash");
  OruGuiBase::ClearLastError();
  return !signature.IsEmpty() || FailWith("The signer returned no signature");
}

bool Signing::SignAttributes(ISignHash& signer) noexcept {
  BerBuffer attributes;
  Digest hash;
  if (!EncodeSignedAttributes(signer_, attributes)) return false;
  if (!hash.Begin(kHash)) return FailWithOpenSSL(kNoHash);
  if (!hash.Add(attributes.GetData(), attributes.GetSize()) || !hash.Finish()) {
    return FailWithOpenSSL(kNotHashed);
  }
  OruGuiBase::Blob signature;
  if (!AskSigner(signer, hash.GetValue(), signature)) return false;
  if (ASN1_OCTET_STRING_set(CMS_SignerInfo_get0_signature(signer_), signature.GetData(),
                            static_cast<int>(signature.GetSize())) != 1) {
    return FailWithOpenSSL("The signature cannot be kept");
  }
  return CheckSignature(hash.GetValue(), signature);
}

// Verifies the signature before the message counts as signed: a signer that holds another key must not be
// found out by the recipient. CMS_SignerInfo_verify does not help, as it encodes the attributes in the order
// in which they were added, not in the one that is signed and written.
bool Signing::CheckSignature(const OruGuiBase::BlobConst& hash,
                             const OruGuiBase::Blob& signature) const noexcept {
  const KeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key_, nullptr));
  if (context == nullptr || EVP_PKEY_verify_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
      EVP_PKEY_CTX_set_signature_md(context.get(), content_.GetAlgorithm()) != 1) {
    return FailWithOpenSSL("The signature cannot be checked");
  }
  return EVP_PKEY_verify(context.get(), signature.GetData(), signature.GetSize(), hash.data, hash.size) ==
             1 ||
         FailWith("The signature does not fit the signer's certificate");
}

bool Signing::Finish() noexcept {
  // The elements after the content are complete only now: they have the digest and the signature.
  frame_ = CmsSkeleton();
  return ReadSkeleton(cms_.get(), frame_) && writer_.Finish();
}

}  // namespace

bool CryptoMessageSyntax::Sign(const OruGuiBase::File& content, const OruGuiBase::File& target,
                               const Certificate& certificate, ISignHash* signer,
                               const OruGuiBase::KVMap& attributes,
                               const OruGuiBase::DateTime* time) noexcept {
  const OpenSSLScope scope;
  if (certificate.IsEmpty()) return FailWith("The signer's certificate is empty");
  if (signer == nullptr) return FailWith("There is nobody to sign the hash");
  Signing signing(target);
  return signing.Begin(certificate, attributes, time) && signing.WriteContent(content) &&
         signing.SignAttributes(*signer) && signing.Finish();
}

}  // namespace OruOssSec

// Makes and reads CMS messages with OpenSSL's own functions: what our reader accepts must not depend on our
// writer.
#include "tests/support/messages.h"

#include <gtest/gtest.h>
#include <memory>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

namespace TestSupport {
namespace {

using CryptStand::Cert;

template <auto Free>
struct Deleter {
  template <class T>
  void operator()(T* handle) const {
    Free(handle);
  }
};
struct CertStackDeleter {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};

using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Deleter<CMS_ContentInfo_free>>;
using TimePtr = std::unique_ptr<ASN1_TIME, Deleter<ASN1_TIME_free>>;
using BorrowedCerts = std::unique_ptr<STACK_OF(X509), CertStackDeleter>;

void Check(bool made, const char* what) {
  if (!made) ADD_FAILURE() << what << ": " << ERR_error_string(ERR_get_error(), nullptr);
  ERR_clear_error();
}

BioPtr Reading(std::string_view bytes) {
  return BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

std::string Written(BIO* bio) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

std::string Encode(const CmsPtr& message, const char* what) {
  const BioPtr out(BIO_new(BIO_s_mem()));
  Check(message != nullptr && i2d_CMS_bio(out.get(), message.get()) == 1, what);
  return Written(out.get());
}

CmsPtr Decode(std::string_view message) {
  const BioPtr in = Reading(message);
  CmsPtr decoded(d2i_CMS_bio(in.get(), nullptr));
  Check(decoded != nullptr, "read a message");
  return decoded;
}

bool AddAttributes(CMS_SignerInfo* signer, const SignerSpec& spec) {
  bool added = true;
  for (const AttributeSpec& attribute : spec.attributes) {
    const int type = attribute.isText ? V_ASN1_UTF8STRING : V_ASN1_OCTET_STRING;
    added = CMS_signed_add1_attr_by_txt(signer, attribute.oid.c_str(), type, attribute.value.data(),
                                        static_cast<int>(attribute.value.size())) == 1 &&
            added;
  }
  if (!spec.signingTime) return added;
  const TimePtr time(ASN1_TIME_set(nullptr, *spec.signingTime));
  return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, time->type, time.get(), -1) == 1 && added;
}

bool AddSigner(CMS_ContentInfo* message, const SignerSpec& spec) {
  const unsigned int flags = CMS_BINARY | CMS_PARTIAL | (spec.hasCertificate ? 0U : CMS_NOCERTS);
  CMS_SignerInfo* const signer = CMS_add1_signer(message, spec.identity.certificate.Get0(),
                                                 spec.identity.key.Get0(), EVP_sha512(), flags);
  if (signer == nullptr || !AddAttributes(signer, spec)) return false;
  for (const Cert& certificate : spec.more) {
    if (CMS_add1_cert(message, certificate.Get0()) != 1) return false;
  }
  return true;
}

std::string DigestOf(X509* certificate) {
  if (certificate == nullptr) return "";
  X509_up_ref(certificate);
  return Cert(certificate).GetDigest();
}

std::time_t TimeOf(CMS_SignerInfo* signer) {
  const int index = CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, -1);
  if (index < 0) return 0;
  ASN1_TYPE* const value = X509_ATTRIBUTE_get0_type(CMS_signed_get_attr(signer, index), 0);
  std::tm time{};
  if (value == nullptr || ASN1_TIME_to_tm(value->value.utctime, &time) != 1) return 0;
  return timegm(&time);
}

std::string OidOf(const ASN1_OBJECT* object) {
  char text[80];
  OBJ_obj2txt(text, sizeof text, object, 1);
  return text;
}

void ReadAttributes(CMS_SignerInfo* signer, OpenedMessage& opened) {
  for (int i = 0; i < CMS_signed_get_attr_count(signer); ++i) {
    X509_ATTRIBUTE* const attribute = CMS_signed_get_attr(signer, i);
    ASN1_TYPE* const value = X509_ATTRIBUTE_get0_type(attribute, 0);
    if (value == nullptr || value->type != V_ASN1_UTF8STRING) continue;
    const ASN1_STRING* const text = value->value.utf8string;
    opened.attributes.emplace_back(OidOf(X509_ATTRIBUTE_get0_object(attribute)),
                                   std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                                               static_cast<std::size_t>(ASN1_STRING_length(text))));
  }
}

void ReadFirstSigner(CMS_SignerInfo* signer, OpenedMessage& opened) {
  X509_ALGOR* digest = nullptr;
  X509_ALGOR* signature = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, &signature);
  opened.signatureAlgorithm = std::string(OBJ_nid2sn(OBJ_obj2nid(signature->algorithm))) + "/" +
                              OBJ_nid2sn(OBJ_obj2nid(digest->algorithm));
  opened.signingTime = TimeOf(signer);
  ReadAttributes(signer, opened);
}

}  // namespace

std::string MakeSigned(std::string_view content, const std::vector<SignerSpec>& signers) {
  const BioPtr in = Reading(content);
  const CmsPtr message(CMS_sign(nullptr, nullptr, nullptr, in.get(), CMS_BINARY | CMS_PARTIAL));
  bool made = message != nullptr;
  for (const SignerSpec& signer : signers) made = made && AddSigner(message.get(), signer);
  made = made && CMS_final(message.get(), in.get(), nullptr, CMS_BINARY) == 1;
  Check(made, "sign");
  return Encode(message, "write a SignedData");
}

// OpenSSL can read a SignedData without signers but not make one, so the one signer is taken out while the
// message is encoded.
std::string MakeUnsigned(std::string_view content, const SignerSpec& signer) {
  const BioPtr in = Reading(content);
  const CmsPtr message(CMS_sign(nullptr, nullptr, nullptr, in.get(), CMS_BINARY | CMS_PARTIAL));
  const bool made = message != nullptr && AddSigner(message.get(), signer) &&
                    CMS_final(message.get(), in.get(), nullptr, CMS_BINARY) == 1;
  Check(made, "sign");
  STACK_OF(CMS_SignerInfo)* const signers = CMS_get0_SignerInfos(message.get());
  CMS_SignerInfo* const taken = sk_CMS_SignerInfo_pop(signers);
  std::string encoded = Encode(message, "write a SignedData");
  sk_CMS_SignerInfo_push(signers, taken);
  return encoded;
}

std::string MakeEnveloped(std::string_view content, const std::vector<Cert>& recipients) {
  const BioPtr in = Reading(content);
  const BorrowedCerts certificates(sk_X509_new_null());
  for (const Cert& recipient : recipients) sk_X509_push(certificates.get(), recipient.Get0());
  const CmsPtr message(CMS_encrypt(certificates.get(), in.get(), EVP_aes_256_cbc(), CMS_BINARY));
  return Encode(message, "write an EnvelopedData");
}

std::string MakeEnvelopedByKeyId(std::string_view content, const Cert& recipient) {
  const BioPtr in = Reading(content);
  const CmsPtr message(CMS_encrypt(nullptr, in.get(), EVP_aes_256_cbc(), CMS_BINARY | CMS_PARTIAL));
  const bool made = message != nullptr &&
                    CMS_add1_recipient_cert(message.get(), recipient.Get0(), CMS_USE_KEYID) != nullptr &&
                    CMS_final(message.get(), in.get(), nullptr, CMS_BINARY) == 1;
  Check(made, "encrypt");
  return Encode(message, "write an EnvelopedData");
}

std::string MakeDigested(std::string_view content) {
  const BioPtr in = Reading(content);
  const CmsPtr message(CMS_digest_create(in.get(), EVP_sha256(), CMS_BINARY));
  return Encode(message, "write a DigestedData");
}

std::string MakeData(std::string_view content) {
  const BioPtr in = Reading(content);
  const CmsPtr message(CMS_data_create(in.get(), CMS_BINARY));
  return Encode(message, "write a Data");
}

std::string OpenEnvelope(std::string_view message, const CryptStand::Identity& recipient) {
  const CmsPtr envelope = Decode(message);
  const BioPtr out(BIO_new(BIO_s_mem()));
  Check(CMS_decrypt(envelope.get(), recipient.key.Get0(), recipient.certificate.Get0(), nullptr, out.get(),
                    CMS_BINARY) == 1,
        "open an EnvelopedData");
  return Written(out.get());
}

OpenedMessage OpenSigned(std::string_view message) {
  OpenedMessage opened;
  const CmsPtr signedData = Decode(message);
  const BioPtr out(BIO_new(BIO_s_mem()));
  Check(CMS_verify(signedData.get(), nullptr, nullptr, nullptr, out.get(),
                   CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) == 1,
        "verify a SignedData");
  opened.content = Written(out.get());
  STACK_OF(CMS_SignerInfo)* const signers = CMS_get0_SignerInfos(signedData.get());
  for (int i = 0; i < sk_CMS_SignerInfo_num(signers); ++i) {
    CMS_SignerInfo* const signer = sk_CMS_SignerInfo_value(signers, i);
    X509* certificate = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, nullptr, nullptr);
    opened.signerDigests.push_back(DigestOf(certificate));
    if (i == 0) ReadFirstSigner(signer, opened);
  }
  return opened;
}

}  // namespace TestSupport

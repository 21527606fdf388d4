#include <openssl/crypto.h>
#include <openssl/rsa.h>

#include "foundation/blob.h"
#include "foundation/errorstate.h"
#include "security/ber/source.h"
#include "security/cms/attributes.h"
#include "security/cms/digest.h"
#include "security/cms/sink.h"
#include "security/cryptomessagesyntax.h"
#include "security/failure.h"
#include "security/x509/strength.h"

namespace OruOssSec {

namespace {

constexpr const char* kHash = "SHA512";
constexpr const char* kNoHash = "SHA-512 is not available";
constexpr const char* kNotHashed = "The hash cannot be computed";

// One SignedData in progress.
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
  EVP_PKEY* key_ = nullptr;  // the certificate's
  CMS_SignerInfo* signer_ = nullptr;
  CmsSkeleton frame_;
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

// Asks the caller's signer, whose reason stands when it fails. What it leaves in the error state when it
// succeeds, such as the reason of a first attempt, is no failure of ours.
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

// Over the hash that was signed: OpenSSL's own check of a signer takes the attributes in the order in which
// they were added, which is not the one that is signed and written.
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

#include "security/cms/verifying.h"

#include <ctime>

#include "foundation/dates.h"
#include "security/cms/digests.h"
#include "security/cms/signers.h"
#include "security/failure.h"
#include "security/x509/chain.h"
#include "security/x509/strength.h"

namespace OruOssSec {

namespace {

const X509_ALGOR* GetDigestAlgorithm(CMS_SignerInfo* signer) noexcept {
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  return digest;
}

// The one value of an attribute that may occur once with one value, as OpenSSL's place -3 demands.
void* GetOnlyValue(const CMS_SignerInfo* signer, int nid, int type) noexcept {
  return CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(nid), -3, type);
}

bool CheckContentType(const LoadedMessage& message, const CMS_SignerInfo* signer) noexcept {
  const auto* claimed =
      static_cast<const ASN1_OBJECT*>(GetOnlyValue(signer, NID_pkcs9_contentType, V_ASN1_OBJECT));
  const ASN1_OBJECT* actual = CMS_get0_eContentType(message.cms.get());
  return (claimed != nullptr && actual != nullptr && OBJ_cmp(claimed, actual) == 0) ||
         FailWith("A signature is for content of another type");
}

// Gives the signer its certificate and checks its signature. Signed attributes have to be there: a signature
// right over the content could be moved to content that looks like attributes, and the other way.
bool CheckSignature(const LoadedMessage& message, CMS_SignerInfo* signer,
                    STACK_OF(X509) * certificates) noexcept {
  if (CMS_signed_get_attr_count(signer) <= 0) return FailWith("A signer has no signed attributes");
  X509* certificate = FindSignerCertificate(signer, certificates);
  if (certificate == nullptr) return FailWith("The message does not hold a signer's certificate");
  if (HasShortKey(certificate)) return FailWith("A signer's RSA key has fewer than 2048 bits");
  if (!CheckContentType(message, signer)) return false;
  CMS_SignerInfo_set1_signer_cert(signer, certificate);
  return CMS_SignerInfo_verify(signer) == 1 || FailWith("A signature is not valid");
}

bool CheckDigest(CMS_SignerInfo* signer, const ContentDigests& digests) noexcept {
  const auto* claimed = static_cast<const ASN1_OCTET_STRING*>(
      GetOnlyValue(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING));
  if (claimed == nullptr) return FailWith("A signer claims no digest of the content");
  return digests.IsEqual(GetDigestAlgorithm(signer), claimed) ||
         FailWith("The content is not what was signed");
}

bool CheckChain(CMS_SignerInfo* signer, const CertStore& trusted, STACK_OF(X509) * certificates) noexcept {
  OruGuiBase::DateTime time;
  if (!ReadSigningTime(signer, time)) return false;
  ChainRules rules;
  rules.time = time == OruGuiBase::DateTime() ? std::time(nullptr) : OruGuiBase::ToUnixTime(time);
  const ChainVerdict verdict =
      FindChain(FindSignerCertificate(signer, certificates), {trusted.Get0(), certificates, nullptr}, rules);
  return verdict.code == X509_V_OK || FailWith(verdict.text);
}

}  // namespace

bool VerifySigners(const LoadedMessage& message, const CertStore* store) noexcept {
  if (message.skeleton.type != CMSMsg::Type::SignedData) return FailWith("The message is not a signed one");
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(message.cms.get());
  const int count = sk_CMS_SignerInfo_num(signers);
  if (count <= 0) return FailWith("The message has no signers");
  if (!message.skeleton.hasContent) return FailWith("The message does not hold its content");
  const CertStackPtr certificates(CMS_get1_certs(message.cms.get()));
  ContentDigests digests;
  for (int i = 0; i < count; ++i) {
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, i);
    if (!digests.Ask(GetDigestAlgorithm(signer))) return false;
    if (!CheckSignature(message, signer, certificates.get())) return false;
    if (store != nullptr && !CheckChain(signer, *store, certificates.get())) return false;
  }
  if (!digests.Compute(message)) return false;
  for (int i = 0; i < count; ++i) {
    if (!CheckDigest(sk_CMS_SignerInfo_value(signers, i), digests)) return false;
  }
  return true;
}

}  // namespace OruOssSec

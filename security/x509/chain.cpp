#include "security/x509/chain.h"

#include <new>

#include "foundation/dates.h"
#include "security/certificate.h"
#include "security/certstore.h"
#include "security/failure.h"
#include "security/openssl_handles.h"

namespace OruOssSec {
namespace {

using OruGuiBase::DateTime;
using Chain = OruGuiBase::PtrContainerQueue<Certificate>;

bool CopyChain(const STACK_OF(X509) * verified, Chain& chain) {
  for (int i = 0; i < sk_X509_num(verified); ++i) {
    X509* const certificate = sk_X509_value(verified, i);
    auto* const entry = new (std::nothrow) Certificate();
    if (entry == nullptr || !chain.Append(entry)) return false;
    X509_up_ref(certificate);
    *entry = Certificate(certificate);
  }
  return true;
}

CertVerifyResult Outcome(int code, const char* text) {
  if (code != X509_V_OK) FailWith(text);
  return {code, text};
}

}  // namespace

CertVerifyResult Certificate::VerifyChain(const CertStore& store, const CertStore& preferred, Chain* chain,
                                          bool checkRevocation, bool allowPartialChain, const DateTime& time,
                                          bool ignoreTime) const noexcept {
  const OpenSSLScope scope;
  if (chain != nullptr) chain->Clear();
  if (certificate_ == nullptr) return Outcome(X509_V_ERR_INVALID_CALL, "The certificate is empty");
  // A time that is no date lies before every certificate. It never means the present.
  if (!ignoreTime && !OruGuiBase::IsValidDateTime(time)) {
    return Outcome(X509_V_ERR_CERT_NOT_YET_VALID,
                   X509_verify_cert_error_string(X509_V_ERR_CERT_NOT_YET_VALID));
  }
  const ChainVerdict verdict = FindChain(
      certificate_, {store.Get0(), nullptr, preferred.Get0()},
      {checkRevocation, allowPartialChain, ignoreTime, ignoreTime ? 0 : OruGuiBase::ToUnixTime(time)});
  if (verdict.code == X509_V_OK && chain != nullptr && !CopyChain(verdict.chain.get(), *chain)) {
    chain->Clear();
    return Outcome(X509_V_ERR_OUT_OF_MEM, X509_verify_cert_error_string(X509_V_ERR_OUT_OF_MEM));
  }
  return Outcome(verdict.code, verdict.text);
}

CertVerifyResult Certificate::VerifyChain(const CertStore& store, Chain* chain, bool checkRevocation,
                                          bool allowPartialChain, const DateTime& time,
                                          bool ignoreTime) const noexcept {
  return VerifyChain(store, CertStore(), chain, checkRevocation, allowPartialChain, time, ignoreTime);
}

}  // namespace OruOssSec

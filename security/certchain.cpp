#include "security/certchain.h"

#include <ctime>
#include <new>

#include "foundation/dates.h"
#include "security/certificate.h"
#include "security/certstore.h"
#include "security/openssl_handles.h"

namespace OruOssSec {
namespace {

using OruGuiBase::DateTime;
using Chain = OruGuiBase::PtrContainerQueue<Certificate>;

struct Flags {
  bool checkRevocation;
  bool allowPartialChain;
  bool ignoreTime;
};

const STACK_OF(X509) * TrustedOf(X509_STORE_CTX* context) {
  return static_cast<const STACK_OF(X509)*>(X509_STORE_CTX_get_app_data(context));
}

// Answers OpenSSL's search by subject from the caller's certificates: an X509_STORE would sort its index
// again for each certificate that is added to it.
STACK_OF(X509) * FindBySubject(X509_STORE_CTX* context, const X509_NAME* subject) {
  const STACK_OF(X509)* const trusted = TrustedOf(context);
  CertStackPtr found(sk_X509_new_null());
  if (found == nullptr) return nullptr;
  for (int i = 0; i < sk_X509_num(trusted); ++i) {
    X509* const certificate = sk_X509_value(trusted, i);
    if (X509_NAME_cmp(X509_get_subject_name(certificate), subject) != 0) continue;
    if (sk_X509_push(found.get(), certificate) == 0) return nullptr;
    X509_up_ref(certificate);
  }
  return found.release();
}

bool IsInTime(X509_STORE_CTX* context, const X509* certificate) {
  return X509_cmp_timeframe(X509_STORE_CTX_get0_param(context), X509_get0_notBefore(certificate),
                            X509_get0_notAfter(certificate)) == 0;
}

// How well a certificate of the issuer's name fits as issuer. Authorities renew their certificates and keys
// under one name, and not all certificates say by key identifier which key signed them. Among several for one
// key the self-signed one ends the chain; the others may lead round in circles.
int Fitness(X509_STORE_CTX* context, X509* subject, X509* candidate) {
  int fitness = 0;
  if (X509_cmp(subject, candidate) == 0) fitness += 8;
  if (X509_verify(subject, X509_get0_pubkey(candidate)) == 1) fitness += 4;
  if (IsInTime(context, candidate)) fitness += 2;
  if (X509_self_signed(candidate, 0) == 1) fitness += 1;
  return fitness;
}

bool EndsLater(const X509* a, const X509* b) {
  return ASN1_TIME_compare(X509_get0_notAfter(a), X509_get0_notAfter(b)) > 0;
}

// Answers OpenSSL's search for an issuer with the fittest of the caller's certificates. One that does not fit
// is handed out too when there is no better: then the error tells what is wrong with it.
int FindIssuer(X509** issuer, X509_STORE_CTX* context, X509* subject) {
  const auto isIssuer = X509_STORE_CTX_get_check_issued(context);
  const STACK_OF(X509)* const trusted = TrustedOf(context);
  X509* best = nullptr;
  int bestFitness = 0;
  for (int i = 0; i < sk_X509_num(trusted); ++i) {
    X509* const candidate = sk_X509_value(trusted, i);
    if (isIssuer(context, subject, candidate) == 0) continue;
    const int fitness = Fitness(context, subject, candidate);
    if (best != nullptr &&
        (fitness < bestFitness || (fitness == bestFitness && !EndsLater(candidate, best)))) {
      continue;
    }
    best = candidate;
    bestFitness = fitness;
  }
  if (best == nullptr) return 0;
  X509_up_ref(best);
  *issuer = best;
  return 1;
}

std::time_t ToSeconds(const DateTime& time) {
  std::tm fields = {};
  fields.tm_year = time.year - 1900;
  fields.tm_mon = time.month - 1;
  fields.tm_mday = time.day;
  fields.tm_hour = time.hour;
  fields.tm_min = time.minute;
  fields.tm_sec = time.second;
  return timegm(&fields);
}

// A check time that is set wins over the flag that leaves time out, so only one of them is given.
void SetParameters(X509_STORE_CTX* context, const Flags& flags, const DateTime& time) {
  X509_VERIFY_PARAM* const parameters = X509_STORE_CTX_get0_param(context);
  unsigned long bits = 0;
  if (flags.checkRevocation) bits |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
  if (flags.allowPartialChain) bits |= X509_V_FLAG_PARTIAL_CHAIN;
  if (flags.ignoreTime) bits |= X509_V_FLAG_NO_CHECK_TIME;
  X509_VERIFY_PARAM_set_flags(parameters, bits);
  if (!flags.ignoreTime) X509_VERIFY_PARAM_set_time(parameters, ToSeconds(time));
}

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

int Verify(X509* certificate, STACK_OF(X509) * trusted, Chain* chain, const Flags& flags,
           const DateTime& time) {
  const StorePtr store = NewChainStore();
  const StoreCtxPtr context(X509_STORE_CTX_new());
  if (store == nullptr || context == nullptr ||
      !PrepareChain(context.get(), store.get(), certificate, nullptr, trusted)) {
    return X509_V_ERR_OUT_OF_MEM;
  }
  SetParameters(context.get(), flags, time);
  if (X509_verify_cert(context.get()) != 1) {
    const int code = X509_STORE_CTX_get_error(context.get());
    return code != X509_V_OK ? code : X509_V_ERR_UNSPECIFIED;
  }
  if (chain != nullptr && !CopyChain(X509_STORE_CTX_get0_chain(context.get()), *chain)) {
    chain->Clear();
    return X509_V_ERR_OUT_OF_MEM;
  }
  return X509_V_OK;
}

CertVerifyResult Outcome(int code, const char* text) {
  if (code != X509_V_OK) FailWith(text);
  return {code, text};
}

}  // namespace

StorePtr NewChainStore() noexcept {
  StorePtr store(X509_STORE_new());
  if (store == nullptr) return nullptr;
  X509_STORE_set_get_issuer(store.get(), FindIssuer);
  X509_STORE_set_lookup_certs(store.get(), FindBySubject);
  return store;
}

bool PrepareChain(X509_STORE_CTX* context, X509_STORE* store, X509* certificate, STACK_OF(X509) * untrusted,
                  STACK_OF(X509) * trusted) noexcept {
  return X509_STORE_CTX_init(context, store, certificate, untrusted) == 1 &&
         X509_STORE_CTX_set_app_data(context, trusted) == 1;
}

CertVerifyResult Certificate::VerifyChain(const CertStore& store, Chain* chain, bool checkRevocation,
                                          bool allowPartialChain, const DateTime& time,
                                          bool ignoreTime) const noexcept {
  const OpenSSLScope scope;
  if (chain != nullptr) chain->Clear();
  if (certificate_ == nullptr) return Outcome(X509_V_ERR_INVALID_CALL, "The certificate is empty");
  // A time that is no date lies before every certificate. It never means the present.
  const int code =
      !ignoreTime && !OruGuiBase::IsValidDateTime(time)
          ? X509_V_ERR_CERT_NOT_YET_VALID
          : Verify(certificate_, store.Get0(), chain, {checkRevocation, allowPartialChain, ignoreTime}, time);
  return Outcome(code, X509_verify_cert_error_string(code));
}

}  // namespace OruOssSec

#include "security/x509/chain_judge.h"

#include <algorithm>

#include "security/x509/strength.h"

namespace OruOssSec {
namespace {

ChainPath& PathOf(X509_STORE_CTX* context) {
  return *static_cast<ChainPath*>(X509_STORE_CTX_get_app_data(context));
}

// Gives OpenSSL the next certificate of the path as the issuer, so that its own way of
// choosing among several, which differs between its versions, never matters.
int GetNext(X509** issuer, X509_STORE_CTX* context, X509* subject) {
  const ChainPath& path = PathOf(context);
  const auto found = std::find(path.begin(), path.end(), subject);
  if (found == path.end()) return 0;
  const bool isLast = found + 1 == path.end();
  if (isLast && X509_self_signed(subject, 0) != 1) return 0;
  *issuer = isLast ? subject : *(found + 1);
  X509_up_ref(*issuer);
  return 1;
}

// A certificate that is trusted itself is looked up by its subject.
STACK_OF(X509) * FindBySubject(X509_STORE_CTX* context, const X509_NAME* subject) {
  CertStackPtr found(sk_X509_new_null());
  if (found == nullptr) return nullptr;
  for (X509* certificate : PathOf(context)) {
    if (X509_NAME_cmp(X509_get_subject_name(certificate), subject) != 0) continue;
    if (sk_X509_push(found.get(), certificate) == 0) return nullptr;
    X509_up_ref(certificate);
  }
  return found.release();
}

// OpenSSL ends a chain where it sees fit; what was judged has to be the path, certificate by certificate.
bool IsPath(const STACK_OF(X509) * chain, const ChainPath& path) {
  if (sk_X509_num(chain) != static_cast<int>(path.size())) return false;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (sk_X509_value(chain, static_cast<int>(i)) != path[i]) return false;
  }
  return true;
}

void Refuse(ChainVerdict& verdict, int code, const char* text) {
  verdict.chain.reset();
  verdict.code = code;
  verdict.text = text;
}

// What the last certificate says about itself is not relied upon: it is trusted. Its key is relied upon.
void CheckStrength(ChainVerdict& verdict) {
  const int count = sk_X509_num(verdict.chain.get());
  for (int i = 0; i < count; ++i) {
    X509* const certificate = sk_X509_value(verdict.chain.get(), i);
    if (HasShortKey(certificate)) {
      return Refuse(verdict, i == 0 ? X509_V_ERR_EE_KEY_TOO_SMALL : X509_V_ERR_CA_KEY_TOO_SMALL,
                    "A certificate's RSA key has fewer than 2048 bits");
    }
    const char* const weakness = i + 1 < count ? FindWeakSignature(certificate) : nullptr;
    if (weakness != nullptr) return Refuse(verdict, X509_V_ERR_CA_MD_TOO_WEAK, weakness);
  }
}

}  // namespace

// A check time that is set wins over the flag that leaves time out, so only one of them is given.
void SetChainParameters(X509_VERIFY_PARAM* parameters, const ChainRules& rules) noexcept {
  unsigned long bits = 0;
  if (rules.checkRevocation) bits |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
  if (rules.allowPartialChain) bits |= X509_V_FLAG_PARTIAL_CHAIN;
  if (rules.ignoreTime) bits |= X509_V_FLAG_NO_CHECK_TIME;
  X509_VERIFY_PARAM_set_flags(parameters, bits);
  X509_VERIFY_PARAM_set_auth_level(parameters, 0);
  if (!rules.ignoreTime) X509_VERIFY_PARAM_set_time(parameters, rules.time);
}

ChainVerdict JudgePath(ChainPath& path, const ChainRules& rules) noexcept {
  ChainVerdict verdict;
  verdict.code = X509_V_ERR_OUT_OF_MEM;
  const StorePtr store(X509_STORE_new());
  const StoreCtxPtr context(X509_STORE_CTX_new());
  if (store != nullptr) {
    X509_STORE_set_get_issuer(store.get(), GetNext);
    X509_STORE_set_lookup_certs(store.get(), FindBySubject);
  }
  if (store != nullptr && context != nullptr &&
      X509_STORE_CTX_init(context.get(), store.get(), path.front(), nullptr) == 1 &&
      X509_STORE_CTX_set_app_data(context.get(), &path) == 1) {
    SetChainParameters(X509_STORE_CTX_get0_param(context.get()), rules);
    const bool isVerified = X509_verify_cert(context.get()) == 1;
    const int code = X509_STORE_CTX_get_error(context.get());
    verdict.code = isVerified ? X509_V_OK : code != X509_V_OK ? code : X509_V_ERR_UNSPECIFIED;
    if (isVerified) verdict.chain.reset(X509_STORE_CTX_get1_chain(context.get()));
    if (isVerified && verdict.chain == nullptr) verdict.code = X509_V_ERR_OUT_OF_MEM;
  }
  verdict.text = X509_verify_cert_error_string(verdict.code);
  if (verdict.code != X509_V_OK) return verdict;
  if (IsPath(verdict.chain.get(), path)) {
    CheckStrength(verdict);
  } else {
    Refuse(verdict, X509_V_ERR_UNSPECIFIED, X509_verify_cert_error_string(X509_V_ERR_UNSPECIFIED));
  }
  return verdict;
}

}  // namespace OruOssSec

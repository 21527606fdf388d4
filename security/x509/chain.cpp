// Finds the chain of a certificate (RFC 5280, 6). Certificate::VerifyChain and the check of signers call
// FindChain; nothing else does.
//
// ChainSearch proposes paths, and OpenSSL judges each complete one by itself. OpenSSL's own search is not
// used: it does not come back from an issuer that leads nowhere, and its choice differs between its versions.
#include "security/x509/chain.h"

#include <algorithm>
#include <map>
#include <new>
#include <openssl/x509v3.h>
#include <utility>
#include <vector>

#include "security/x509/cert_pool.h"
#include "security/x509/strength.h"

namespace OruOssSec {
namespace {

using ChainPath = std::vector<X509*>;

// OpenSSL hands its context to the two callbacks below; the path travels in it.
ChainPath& PathOf(X509_STORE_CTX* context) {
  return *static_cast<ChainPath*>(X509_STORE_CTX_get_app_data(context));
}

// Gives OpenSSL the next certificate of the path as the issuer, so that its own choice among several never
// matters.
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

// OpenSSL asks by subject whether a certificate is trusted itself.
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

// OpenSSL may end a chain earlier than the path. Then it judged something else, which must not count.
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

// The last certificate is trusted as it is, so its own signature proves nothing and is not looked at. Its key
// signs the next one and has to be strong.
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

// Sets the time and the type of chain in a context. The security level is 0, as a system's configuration must
// not decide what is valid: CheckStrength does. In OpenSSL a check time that is set wins over the flag that
// leaves time out, so only one of them is given.
void SetChainParameters(X509_VERIFY_PARAM* parameters, const ChainRules& rules) {
  unsigned long bits = 0;
  if (rules.checkRevocation) bits |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
  if (rules.allowPartialChain) bits |= X509_V_FLAG_PARTIAL_CHAIN;
  if (rules.ignoreTime) bits |= X509_V_FLAG_NO_CHECK_TIME;
  X509_VERIFY_PARAM_set_flags(parameters, bits);
  X509_VERIFY_PARAM_set_auth_level(parameters, 0);
  if (!rules.ignoreTime) X509_VERIFY_PARAM_set_time(parameters, rules.time);
}

// Verifies exactly this path, from its first certificate to its last, which is trusted, and refuses what is
// too weak by our own rules (strength.h).
ChainVerdict JudgePath(ChainPath& path, const ChainRules& rules) {
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

constexpr const char* kSpent = "Too many certificates of the same name to find a chain";

// The check of a signature hashes the certificate first, whose size is up to whoever made it.
std::uint32_t GetHashCost(const X509* certificate) {
  constexpr std::uint32_t kOctetsOfAUnit = 16 * 1024;  // counted as one unit of GetCheckCost
  const int size = i2d_X509(certificate, nullptr);
  return size > 0 ? static_cast<std::uint32_t>(size) / kOctetsOfAUnit : 0;
}

ChainVerdict Refusal(int code) {
  ChainVerdict verdict;
  verdict.code = code;
  verdict.text = X509_verify_cert_error_string(code);
  return verdict;
}

ChainVerdict RefusalOfTheSearch() {
  ChainVerdict verdict = Refusal(X509_V_ERR_UNSPECIFIED);
  verdict.text = kSpent;
  return verdict;
}

/// One search for a chain, depth first: the best issuer first, the next one when it leads nowhere. Complete
/// paths are judged by OpenSSL; the search only proposes them and never accepts one by itself. It refers to
/// the certificates of its sources and lives for one call of FindChain.
///
/// The limits are far above what real lists need, where nearly always one issuer fits each certificate. They
/// bound the time that a hostile store or message can cost to a few seconds. Its maker also chose its keys,
/// and a check with one key can take a hundred times as long as with another, so checks are counted by their
/// cost.
class ChainSearch {
 public:
  /// Certificates of a path; OpenSSL's own limit is a little higher.
  static constexpr std::size_t kMostDepth = 100;
  /// Pairs of a certificate and a possible issuer that are looked at.
  static constexpr std::uint32_t kMostSteps = 1'000'000;
  /// The most that all checks of signatures may cost, in units of GetCheckCost. Includes the checks in judged
  /// paths.
  static constexpr std::uint32_t kMostWork = 10'000;
  /// Certificates of complete paths that are judged: a thousand paths of usual length.
  static constexpr std::uint32_t kMostJudged = 4'000;

  /// Throws std::bad_alloc on allocation failure, as Run does.
  ChainSearch(X509* certificate, const ChainSources& sources, const ChainRules& rules);
  ChainVerdict Run();

 private:
  enum class Result {
    Verified,
    Spent,    ///< a limit was reached
    Refused,  ///< there were paths that failed, or there may be one over another way
    DeadEnd,  ///< nothing above leads to a trusted certificate
  };

  Result Climb();
  Result TryIssuer(PoolEntry& issuer);
  Result Judge();
  bool IsComplete() const;
  bool IsTopTrusted() const { return tops_.empty() ? isTrusted_ : tops_.back()->isTrusted; }
  bool IsTopSelfSigned() const { return tops_.empty() ? isSelfSigned_ : tops_.back()->isSelfSigned; }
  bool IsOnPath(const PoolEntry& entry) const;
  bool FitsByName(const PoolEntry& issuer);
  bool HasSigned(const PoolEntry& issuer);
  std::uint32_t GetPathCost() const;
  void Push(PoolEntry& issuer);
  void Pop();
  PoolEntry* FindFittest();
  ChainVerdict Explain();
  ChainVerdict ExplainDeadEnd() const;

  VerifyParamPtr parameters_;
  ChainRules rules_;
  CertPool pool_;
  bool isTrusted_ = false;
  bool isSelfSigned_ = false;
  ChainPath path_;
  std::vector<PoolEntry*> tops_;  // the entries of the path after the first
  // Results of checks, by certificate and number of the issuer's key.
  std::map<std::pair<const X509*, std::size_t>, bool> signatures_;
  std::uint32_t steps_ = 0;
  std::uint32_t work_ = 0;
  std::uint32_t judged_ = 0;
  ChainVerdict verdict_;
  bool wasJudged_ = false;
};

ChainSearch::ChainSearch(X509* certificate, const ChainSources& sources, const ChainRules& rules)
    : parameters_(X509_VERIFY_PARAM_new()), rules_(rules), pool_(parameters_.get()) {
  if (parameters_ == nullptr) throw std::bad_alloc();
  SetChainParameters(parameters_.get(), rules);
  pool_.Prefer(sources.preferred);
  pool_.Add(sources.trusted, /*areTrusted=*/true);
  pool_.Add(sources.untrusted, /*areTrusted=*/false);
  isTrusted_ = pool_.IsTrusted(certificate);
  isSelfSigned_ = X509_self_signed(certificate, 0) == 1;
  path_.push_back(certificate);
}

// A partial chain could also end at its first certificate when that one is trusted. It would hide the issuer
// that callers ask for, so Run tries it only when nothing else is found.
bool ChainSearch::IsComplete() const {
  return IsTopTrusted() && (IsTopSelfSigned() || (rules_.allowPartialChain && path_.size() > 1));
}

// A path that visits a name and key twice is longer than one that visits them once, and no better. A
// preferred issuer at the beginning is the exception: it may be the detour that the caller wants.
bool ChainSearch::IsOnPath(const PoolEntry& entry) const {
  const auto isEqual = [this, &entry](const PoolEntry* top) {
    if (top == tops_.front() && top->isPreferred) return top == &entry;
    return top->key == entry.key && X509_NAME_cmp(X509_get_subject_name(top->certificate),
                                                  X509_get_subject_name(entry.certificate)) == 0;
  };
  return X509_cmp(path_.front(), entry.certificate) == 0 || std::any_of(tops_.begin(), tops_.end(), isEqual);
}

// A key that may not sign certificates still fits here, so that its refusal is explained as what it is.
bool ChainSearch::FitsByName(const PoolEntry& issuer) {
  const int result = X509_check_issued(issuer.certificate, path_.back());
  return result == X509_V_OK || result == X509_V_ERR_KEYUSAGE_NO_CERTSIGN;
}

// Whether the issuer's key signed the top of the path. Certificates that were renewed share a key, so one
// check is enough for all of them.
bool ChainSearch::HasSigned(const PoolEntry& issuer) {
  const auto place = std::make_pair(static_cast<const X509*>(path_.back()), issuer.key);
  const auto known = signatures_.find(place);
  if (known != signatures_.end()) return known->second;
  if (work_ >= kMostWork) return false;
  work_ += issuer.checkCost + GetHashCost(path_.back());
  const bool hasSigned = X509_verify(path_.back(), X509_get0_pubkey(issuer.certificate)) == 1;
  signatures_.emplace(place, hasSigned);
  return hasSigned;
}

// The cost of the checks that OpenSSL repeats when it judges the path.
std::uint32_t ChainSearch::GetPathCost() const {
  std::uint32_t cost = 0;
  for (std::size_t i = 0; i < tops_.size(); ++i) cost += tops_[i]->checkCost + GetHashCost(path_[i]);
  return cost;
}

void ChainSearch::Push(PoolEntry& issuer) {
  tops_.push_back(&issuer);
  path_.push_back(issuer.certificate);
}

void ChainSearch::Pop() {
  tops_.pop_back();
  path_.pop_back();
}

// Keeps the verdict on the first path for the case that all are refused: it is the path that a user expects.
ChainSearch::Result ChainSearch::Judge() {
  const std::uint32_t cost = GetPathCost();
  if (judged_ + path_.size() > kMostJudged || cost > kMostWork - std::min(work_, kMostWork)) {
    return Result::Spent;
  }
  judged_ += static_cast<std::uint32_t>(path_.size());
  work_ += cost;
  ChainVerdict verdict = JudgePath(path_, rules_);
  const bool isVerified = verdict.code == X509_V_OK;
  if (isVerified || !wasJudged_) verdict_ = std::move(verdict);
  wasJudged_ = true;
  return isVerified ? Result::Verified : Result::Refused;
}

// Cheap conditions come first; the check of a signature is the expensive one. A dead end is remembered only
// where it does not depend on the path below.
ChainSearch::Result ChainSearch::TryIssuer(PoolEntry& issuer) {
  if (steps_ == kMostSteps || work_ >= kMostWork) return Result::Spent;
  ++steps_;
  if (!issuer.isSound || issuer.isDeadEnd || !FitsByName(issuer) || !HasSigned(issuer))
    return Result::DeadEnd;
  if (IsOnPath(issuer)) return Result::Refused;
  Push(issuer);
  const Result result = Climb();
  issuer.isDeadEnd = result == Result::DeadEnd;
  Pop();
  return result;
}

// Looks for a chain above the top of the path. The depth is bounded by kMostDepth, and so is the recursion.
ChainSearch::Result ChainSearch::Climb() {
  if (IsComplete()) return Judge();
  if (IsTopSelfSigned() || (!tops_.empty() && tops_.back()->hasWeakSignature)) return Result::DeadEnd;
  if (path_.size() > kMostDepth) return Result::Refused;
  Result all = Result::DeadEnd;
  for (PoolEntry& issuer : pool_.Find(X509_get_issuer_name(path_.back()))) {
    const Result result = TryIssuer(issuer);
    if (result == Result::Verified || result == Result::Spent) return result;
    if (result == Result::Refused) all = Result::Refused;
  }
  return all;
}

ChainVerdict ChainSearch::Run() {
  Result result = Climb();
  if (result == Result::DeadEnd && rules_.allowPartialChain && isTrusted_) result = Judge();
  if (wasJudged_) return std::move(verdict_);
  return result == Result::Spent ? RefusalOfTheSearch() : Explain();
}

// Of the certificates with the name of the top's issuer, the one that a user would call the issuer:
// preferably the one that signed it, then one that is sound, then the first.
PoolEntry* ChainSearch::FindFittest() {
  PoolEntry* best = nullptr;
  int bestFitness = -1;
  for (PoolEntry& issuer : pool_.Find(X509_get_issuer_name(path_.back()))) {
    if (steps_++ >= kMostSteps) break;
    if (!FitsByName(issuer) || IsOnPath(issuer)) continue;
    const int fitness = (HasSigned(issuer) ? 2 : 0) + (issuer.isSound ? 1 : 0);
    if (fitness <= bestFitness) continue;
    best = &issuer;
    bestFitness = fitness;
  }
  return best;
}

// No path consisted of sound certificates alone: builds the one that comes nearest and lets OpenSSL say what
// is wrong with it.
ChainVerdict ChainSearch::Explain() {
  while (!IsComplete()) {
    PoolEntry* const issuer = IsTopSelfSigned() || path_.size() > kMostDepth ? nullptr : FindFittest();
    if (issuer == nullptr) return ExplainDeadEnd();
    Push(*issuer);
  }
  return Judge() == Result::Spent ? RefusalOfTheSearch() : std::move(verdict_);
}

// The codes are those that OpenSSL gives for the same situations, so that callers and users know them.
ChainVerdict ChainSearch::ExplainDeadEnd() const {
  const bool isAlone = path_.size() == 1;
  if (path_.size() > kMostDepth) return Refusal(X509_V_ERR_CERT_CHAIN_TOO_LONG);
  if (IsTopSelfSigned()) {
    return Refusal(isAlone ? X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT : X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN);
  }
  return Refusal(isAlone || !IsTopTrusted() ? X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY
                                            : X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT);
}

}  // namespace

ChainVerdict FindChain(X509* certificate, const ChainSources& sources, const ChainRules& rules) noexcept try {
  return ChainSearch(certificate, sources, rules).Run();
} catch (const std::bad_alloc&) {
  return Refusal(X509_V_ERR_OUT_OF_MEM);
}

}  // namespace OruOssSec

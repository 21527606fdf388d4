#include "security/x509/chain_search.h"

#include <algorithm>
#include <new>
#include <openssl/x509v3.h>

namespace OruOssSec {
namespace {

constexpr const char* kSpent = "Too many certificates of the same name to find a chain";

// Before it is checked a certificate is hashed, and its size is not ours to choose either.
std::uint32_t GetHashCost(const X509* certificate) {
  constexpr std::uint32_t kOctetsOfAUnit = 16 * 1024;
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

}  // namespace

ChainSearch::ChainSearch(X509* certificate, const ChainSources& sources, const ChainRules& rules)
    : parameters_(X509_VERIFY_PARAM_new()), rules_(rules), pool_(parameters_.get()) {
  if (parameters_ == nullptr) throw std::bad_alloc();
  SetChainParameters(parameters_.get(), rules);
  pool_.Prefer(sources.preferred);
  pool_.Add(sources.trusted, true);
  pool_.Add(sources.untrusted, false);
  isTrusted_ = pool_.IsTrusted(certificate);
  isSelfSigned_ = X509_self_signed(certificate, 0) == 1;
  path_.push_back(certificate);
}

// A trusted certificate may be the first of a partial chain as well, but such a chain would hide its issuer.
bool ChainSearch::IsComplete() const {
  return IsTopTrusted() && (IsTopSelfSigned() || (rules_.allowPartialChain && path_.size() > 1));
}

// The path over another certificate of the same name and key would be longer and no better, except when the
// caller prefers the issuer at its beginning.
bool ChainSearch::IsOnPath(const PoolEntry& entry) const {
  const auto isEqual = [this, &entry](const PoolEntry* top) {
    if (top == tops_.front() && top->isPreferred) return top == &entry;
    return top->key == entry.key && X509_NAME_cmp(X509_get_subject_name(top->certificate),
                                                  X509_get_subject_name(entry.certificate)) == 0;
  };
  return X509_cmp(path_.front(), entry.certificate) == 0 || std::any_of(tops_.begin(), tops_.end(), isEqual);
}

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

// What OpenSSL checks again when it judges the path.
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

// Looks for a chain over the top of the path.
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

// Among the issuers of the top's name the one that a user would call the issuer: the one that signed it,
// then one that is sound, then the first.
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

// No path consisted of sound certificates alone: builds the one that comes nearest and says what is wrong
// with it.
ChainVerdict ChainSearch::Explain() {
  while (!IsComplete()) {
    PoolEntry* const issuer = IsTopSelfSigned() || path_.size() > kMostDepth ? nullptr : FindFittest();
    if (issuer == nullptr) return ExplainDeadEnd();
    Push(*issuer);
  }
  return Judge() == Result::Spent ? RefusalOfTheSearch() : std::move(verdict_);
}

ChainVerdict ChainSearch::ExplainDeadEnd() const {
  const bool isAlone = path_.size() == 1;
  if (path_.size() > kMostDepth) return Refusal(X509_V_ERR_CERT_CHAIN_TOO_LONG);
  if (IsTopSelfSigned()) {
    return Refusal(isAlone ? X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT : X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN);
  }
  return Refusal(isAlone || !IsTopTrusted() ? X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY
                                            : X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT);
}

ChainVerdict FindChain(X509* certificate, const ChainSources& sources, const ChainRules& rules) noexcept try {
  return ChainSearch(certificate, sources, rules).Run();
} catch (const std::bad_alloc&) {
  return Refusal(X509_V_ERR_OUT_OF_MEM);
}

}  // namespace OruOssSec

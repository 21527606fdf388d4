#pragma once

#include <map>
#include <memory>
#include <utility>

#include "security/x509/cert_pool.h"
#include "security/x509/chain_judge.h"

namespace OruOssSec {

/// One search for a chain, depth first: the best issuer first, the next one when it leads nowhere. Complete
/// paths are judged by OpenSSL; the search only proposes them and never accepts one by itself.
///
/// The limits are far above what real lists need, where one issuer for each certificate fits nearly always;
/// they bound the time that a store or message made for the purpose can cost to a few seconds. Whoever made
/// it also chose its keys, and a check with one key can take a hundred times as long as with another, so
/// checks are counted by what they cost.
class ChainSearch {
 public:
  /// Certificates of a path; OpenSSL's own limit is a little higher.
  static constexpr std::size_t kMostDepth = 100;
  /// Pairs of a certificate and a possible issuer that are looked at.
  static constexpr std::uint32_t kMostSteps = 1'000'000;
  /// Cost of all checks of signatures, those in judged paths included, in units of GetCheckCost.
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
    Refused,  ///< there were paths, or might be over another way
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
  std::vector<PoolEntry*> tops_;  // the same without the first
  std::map<std::pair<const X509*, std::size_t>, bool> signatures_;
  std::uint32_t steps_ = 0;
  std::uint32_t work_ = 0;
  std::uint32_t judged_ = 0;
  ChainVerdict verdict_;
  bool wasJudged_ = false;
};

}  // namespace OruOssSec

// Ranks the possible issuers of a certificate for ChainSearch, its only user. A list may hold thousands of
// certificates of one name, so everything that is costly is done once for each of them.
#include "security/x509/cert_pool.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <openssl/x509v3.h>
#include <tuple>

#include "security/x509/strength.h"

namespace OruOssSec {
namespace {

// A time as a number that sorts like it, since comparing two ASN1_TIMEs parses both. 0 for one that cannot be
// read, which then comes last.
std::int64_t Number(const ASN1_TIME* time) {
  std::tm fields = {};
  if (ASN1_TIME_to_tm(time, &fields) != 1) return 0;
  std::int64_t number = fields.tm_year + 1900;
  for (const int part : {fields.tm_mon, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec}) {
    number = number * 100 + part;
  }
  return number;
}

// The order that CertPool::Find documents.
bool ComesFirst(const PoolEntry& a, const PoolEntry& b) {
  return std::tie(a.isPreferred, a.isTrusted, a.isSelfSigned, a.end) >
         std::tie(b.isPreferred, b.isTrusted, b.isSelfSigned, b.end);
}

// False for what JudgePath would refuse in an issuer at any place of a path. A mistake on the strict side
// would cost only another explanation, as ChainSearch::Explain builds the nearest path from unsound ones too.
bool IsFitToIssue(X509* certificate, const X509_VERIFY_PARAM* parameters) {
  return (X509_get_extension_flags(certificate) & (EXFLAG_CRITICAL | EXFLAG_INVALID)) == 0 &&
         X509_check_ca(certificate) != 0 && !HasShortKey(certificate) &&
         X509_cmp_timeframe(parameters, X509_get0_notBefore(certificate), X509_get0_notAfter(certificate)) ==
             0;
}

}  // namespace

void CertPool::Prefer(const STACK_OF(X509) * certificates) {
  for (int i = 0; i < sk_X509_num(certificates); ++i) preferred_.insert(sk_X509_value(certificates, i));
}

void CertPool::Add(const STACK_OF(X509) * certificates, bool areTrusted) {
  for (int i = 0; i < sk_X509_num(certificates); ++i) {
    X509* const certificate = sk_X509_value(certificates, i);
    if (!known_.insert(certificate).second) continue;
    if (areTrusted) trusted_.insert(certificate);
    PoolEntry entry;
    entry.certificate = certificate;
    entry.isTrusted = areTrusted;
    groups_[X509_get_subject_name(certificate)].entries.push_back(entry);
  }
}

// Keys are the same when their SubjectPublicKeyInfo is, algorithm and parameters included.
std::size_t CertPool::NumberKey(const X509* certificate) {
  unsigned char* der = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
  if (size <= 0) throw std::bad_alloc();
  const DerPtr owned(der);
  return keys_
      .try_emplace(std::string(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size)),
                   keys_.size())
      .first->second;
}

void CertPool::Examine(PoolEntry& entry) {
  entry.isPreferred = preferred_.contains(entry.certificate);
  entry.isSelfSigned = X509_self_signed(entry.certificate, 0) == 1;
  entry.isSound = IsFitToIssue(entry.certificate, parameters_);
  entry.hasWeakSignature = FindWeakSignature(entry.certificate) != nullptr;
  entry.end = Number(X509_get0_notAfter(entry.certificate));
  entry.key = NumberKey(entry.certificate);
  entry.checkCost = GetCheckCost(X509_get0_pubkey(entry.certificate));
}

std::vector<PoolEntry>& CertPool::Find(const X509_NAME* subject) {
  const auto found = groups_.find(subject);
  if (found == groups_.end()) return none_;
  Group& group = found->second;
  if (!group.isRanked) {
    for (PoolEntry& entry : group.entries) Examine(entry);
    std::stable_sort(group.entries.begin(), group.entries.end(), ComesFirst);
    group.isRanked = true;
  }
  return group.entries;
}

}  // namespace OruOssSec

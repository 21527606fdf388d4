#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "security/openssl_handles.h"

// The certificates that a chain can be built from, found by the name of their subject.
namespace OruOssSec {

/// A certificate that may be the issuer of another one. It refers to the certificate without a reference of
/// its own.
struct PoolEntry {
  X509* certificate = nullptr;
  bool isTrusted = false;
  bool isPreferred = false;
  bool isSelfSigned = false;
  /// Nothing in the certificate itself keeps it from being an issuer at the time of the check.
  bool isSound = false;
  /// Its own signature is too weak to prove anything, so a chain can only end here.
  bool hasWeakSignature = false;
  /// Set by the search: no chain leads from here to a trusted certificate, whatever is below.
  bool isDeadEnd = false;
  /// A number that is the same for all certificates of one key.
  std::size_t key = 0;
  /// What a check of a signature with the key costs (GetCheckCost).
  std::uint32_t checkCost = 1;
  /// End of the validity as digits, year first: a greater number is later.
  std::int64_t end = 0;
};

/// Certificates by subject. Those of one subject are examined when they are first asked for, so a large store
/// costs little more than reading it. The pool owns no certificate: the stacks have to outlive it.
///
/// The functions throw std::bad_alloc on allocation failure.
class CertPool {
 public:
  /// `parameters` hold the time of the check and have to outlive the pool.
  explicit CertPool(const X509_VERIFY_PARAM* parameters) noexcept : parameters_(parameters) {}

  /// Marks certificates, before they are added.
  void Prefer(const STACK_OF(X509) * certificates);
  /// Adds certificates. One that is there already is left as it is, so trusted ones are added first.
  void Add(const STACK_OF(X509) * certificates, bool areTrusted);

  /// The certificates with this subject in the order in which they are tried: preferred ones, trusted ones,
  /// self-signed ones (they end a chain, the others may lead in circles), then those that end last.
  std::vector<PoolEntry>& Find(const X509_NAME* subject);
  /// Whether the certificate was added as a trusted one.
  bool IsTrusted(X509* certificate) const { return trusted_.contains(certificate); }

 private:
  /// Orders certificates by their encoding, so that equal ones from two stacks count once.
  struct ByContent {
    bool operator()(const X509* a, const X509* b) const noexcept { return X509_cmp(a, b) < 0; }
  };
  /// Orders names as OpenSSL compares them, whatever the string types in them.
  struct ByName {
    bool operator()(const X509_NAME* a, const X509_NAME* b) const noexcept { return X509_NAME_cmp(a, b) < 0; }
  };
  using Certificates = std::set<X509*, ByContent>;
  /// All certificates of one subject; ranked when Find() first asks for them.
  struct Group {
    std::vector<PoolEntry> entries;
    bool isRanked = false;
  };

  void Examine(PoolEntry& entry);
  std::size_t NumberKey(const X509* certificate);

  const X509_VERIFY_PARAM* parameters_;
  Certificates known_;
  Certificates trusted_;
  Certificates preferred_;
  std::map<const X509_NAME*, Group, ByName> groups_;
  std::map<std::string, std::size_t> keys_;
  std::vector<PoolEntry> none_;
};

}  // namespace OruOssSec

#pragma once

#include <ctime>

#include "security/openssl_handles.h"

namespace OruOssSec {

/// What a chain has to satisfy. A value without ownership.
struct ChainRules {
  bool checkRevocation = false;
  /// Whether a chain may end in any trusted certificate instead of a self-signed one.
  bool allowPartialChain = false;
  bool ignoreTime = false;
  /// Unix time of the check.
  std::time_t time = 0;
};

/// Where the certificates of a chain come from. All may be null. The stacks and their certificates have to
/// outlive the search.
struct ChainSources {
  STACK_OF(X509) * trusted;
  /// Candidates between the first certificate and a trusted one.
  STACK_OF(X509) * untrusted;
  /// Tried first among those of one name.
  STACK_OF(X509) * preferred;
};

/// The outcome of a search: with X509_V_OK the chain, else the reason in words. Owns the chain; the text is
/// static.
struct ChainVerdict {
  int code = X509_V_ERR_UNSPECIFIED;
  const char* text = nullptr;
  CertStackPtr chain;
};

/// Finds a chain from `certificate` to a trusted one that satisfies the rules, if one exists: when one issuer
/// leads nowhere, the others of its name are tried. Issuers come in the order of CertPool::Find, so a chain
/// whose second certificate is preferred is found before any other. Purposes and names are not checked.
///
/// The work is bounded against stores made to keep it busy: see ChainSearch. A reason other than the bound is
/// that of the chain that was tried first.
ChainVerdict FindChain(X509* certificate, const ChainSources& sources, const ChainRules& rules) noexcept;

}  // namespace OruOssSec

#pragma once

#include <ctime>

#include "security/openssl_handles.h"

// Private to this folder: how a chain is found, wherever one is needed.
namespace OruOssSec {

/// What a chain has to satisfy.
struct ChainRules {
  bool checkRevocation = false;
  /// Whether a chain may end in any trusted certificate instead of a self-signed one.
  bool allowPartialChain = false;
  bool ignoreTime = false;
  /// Unix time of the check.
  std::time_t time = 0;
};

/// Where the certificates of a chain come from. All may be null.
struct ChainSources {
  STACK_OF(X509) * trusted;
  /// May stand between the first certificate and a trusted one.
  STACK_OF(X509) * untrusted;
  /// Tried first among those of one name.
  STACK_OF(X509) * preferred;
};

/// What became of a search: with X509_V_OK the chain, else the reason in words.
struct ChainVerdict {
  int code = X509_V_ERR_UNSPECIFIED;
  const char* text = nullptr;
  CertStackPtr chain;
};

/// Finds a chain from `certificate` to a trusted one that satisfies the rules, where there is one: when one
/// issuer leads nowhere, the others of its name are tried. Issuers come in the order of CertPool::Find, so a
/// chain whose second certificate is preferred is found before any other. Purposes and names are not checked.
///
/// Bounded against stores made to keep it busy: see ChainSearch. A reason other than the bound is that of the
/// chain that was tried first.
ChainVerdict FindChain(X509* certificate, const ChainSources& sources, const ChainRules& rules) noexcept;

}  // namespace OruOssSec

#pragma once

#include <string>
#include <vector>

#include "tests/support/pki.h"

namespace TestSupport {

/// An authority that renewed its certificate: one name, one key, several certificates.
struct Renewed {
  Cert old;      ///< ends first
  Cert fresh;    ///< ends later
  Cert crossed;  ///< ends last, and comes from a root that no list holds
  KeyPair key;

  /// The certificates that the letters name, as PEM: 'o', 'f', 'c'; any other letter is none.
  std::string ToPEM(const std::string& letters) const;
  Identity GetIdentity() const { return {old, key}; }
};

/// Renewals of every authority of Pki below its root, with the keys of Pki: what its authorities issued is
/// issued by these too.
struct Renewals {
  static const Renewals& Get();

  Renewed intermediate;
  Renewed issuing;
  Renewed innerSigning;
};

/// A certificate of the authority with its name and key, from the given issuer, that ends at this date.
Cert Renew(const std::string& commonName, const KeyPair& key, const Identity& issuer, const char* end);

}  // namespace TestSupport

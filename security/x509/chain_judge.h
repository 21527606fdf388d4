#pragma once

#include <vector>

#include "security/x509/chain.h"

namespace OruOssSec {

using ChainPath = std::vector<X509*>;

/// Sets the time and the type of chain in a context. No other limit of OpenSSL's configuration applies.
void SetChainParameters(X509_VERIFY_PARAM* parameters, const ChainRules& rules) noexcept;

/// Verifies exactly this path, from its first certificate to its last, which is trusted. What is too weak by
/// our own rule (see strength.h) is refused too: OpenSSL's depends on how a system configured it.
ChainVerdict JudgePath(ChainPath& path, const ChainRules& rules) noexcept;

}  // namespace OruOssSec

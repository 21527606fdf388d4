#pragma once

#include "security/openssl_handles.h"

// Private to this folder: how chains find their issuers, wherever one is built.
namespace OruOssSec {

/// A store for PrepareChain. It holds nothing itself.
StorePtr NewChainStore() noexcept;

/// Readies `context` to verify `certificate` with the issuers of `trusted`, all of which are trusted, and
/// with those of `untrusted` on the way. Both stacks may be null and must outlive the context.
bool PrepareChain(X509_STORE_CTX* context, X509_STORE* store, X509* certificate, STACK_OF(X509) * untrusted,
                  STACK_OF(X509) * trusted) noexcept;

}  // namespace OruOssSec

#pragma once

#include "foundation/blob.h"
#include "security/export.h"

namespace OruOssSec {

/// Computes a signature with a key that the security library does not hold.
class ISignHash {
 public:
  /// Signs a hash. True when `signature` was filled. On false the implementation hands its reason to
  /// OruGuiBase::SetErrorMessage. Called on the thread that signs, from inside the call that signs.
  virtual bool SignHash(const OruGuiBase::BlobConst& hash, OruGuiBase::Blob& signature) = 0;

 protected:
  ~ISignHash() = default;
};

}  // namespace OruOssSec

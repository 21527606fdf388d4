#pragma once

#include "foundation/blob.h"
#include "security/export.h"

namespace OruOssSec {

/// Computes a signature with a key that the security library does not have. The caller of Sign owns it.
class ISignHash {
 public:
  /// Signs a hash. Returns true when it filled `signature`. Before false it hands its reason to
  /// OruGuiBase::SetErrorMessage. Called on the thread that called Sign, and only during that call.
  virtual bool SignHash(const OruGuiBase::BlobConst& hash, OruGuiBase::Blob& signature) = 0;

 protected:
  ~ISignHash() = default;
};

}  // namespace OruOssSec

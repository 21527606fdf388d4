#pragma once

#include <cstdint>

#include "security/cms/digest.h"
#include "security/cms/skeleton.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// The digests that the signers of a message ask for, each computed once, all in one pass over the content.
class ContentDigests {
 public:
  static constexpr std::uint32_t kDigests = 9;

  /// Asks for a digest by its algorithm identifier; one that is not known is a failure.
  bool Ask(const X509_ALGOR* algorithm) noexcept;
  /// Reads the content and computes what was asked for.
  bool Compute(const LoadedMessage& message) noexcept;
  /// Whether the digest of the algorithm, which was asked for, has this value.
  bool IsEqual(const X509_ALGOR* algorithm, const ASN1_OCTET_STRING* value) const noexcept;

 private:
  bool Add(const BerSpan& span) noexcept;
  bool Finish() noexcept;

  Digest digests_[kDigests];
};

}  // namespace OruOssSec

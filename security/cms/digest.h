#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/blob.h"
#include "foundation/file.h"
#include "security/export.h"

struct evp_md_ctx_st;
struct evp_md_st;

namespace OruOssSec {

/// Computes one message digest: Begin, Add for each part of the bytes, Finish. Owns its OpenSSL objects.
///
/// A failure records no reason, as only the caller knows what is digested: it calls FailWithOpenSSL.
class Digest {
 public:
  /// Bytes of the longest value.
  static constexpr std::uint32_t kMost = 64;

  Digest() noexcept = default;
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;
  ~Digest();

  /// Is called first, and once. `algorithm` is a name of OpenSSL's, such as "SHA512".
  bool Begin(const char* algorithm) noexcept;
  bool IsBegun() const noexcept { return context_ != nullptr; }
  bool Add(const std::uint8_t* data, std::size_t size) noexcept;
  bool Finish() noexcept;

  /// The algorithm, still owned by this object.
  const evp_md_st* GetAlgorithm() const noexcept { return algorithm_; }
  /// The value, valid once Finish succeeded. The bytes live as long as this object.
  OruGuiBase::BlobConst GetValue() const noexcept { return {value_, size_}; }

 private:
  evp_md_st* algorithm_ = nullptr;
  evp_md_ctx_st* context_ = nullptr;
  std::uint8_t value_[kMost] = {};
  unsigned int size_ = 0;
};

/// Computes the digest of a file of any size, or of what a pipe delivers. `algorithm` is "SHA-256", "SHA-384"
/// or "SHA-512". On false the reason is in the error state and `digest` is unchanged.
ORUSEC_EXPORT bool DigestFile(const OruGuiBase::File& file, const char* algorithm,
                              OruGuiBase::Blob& digest) noexcept;

}  // namespace OruOssSec

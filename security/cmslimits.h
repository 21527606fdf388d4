#pragma once

#include <cstdint>

namespace OruOssSec {

/// Limits of a message without its content, which has no limit. A message beyond one is refused with a
/// reason, both when it is read and when it is written.
///
/// They bound what a hostile message costs before any of it is proven: memory, time, and requests to servers,
/// as each signer may need one. A protected file has one recipient and one signer with six attributes and one
/// certificate, and takes 2 KiB besides its content; the largest message known from elsewhere has fewer than
/// 100 attributes and 10 signers.
struct CMSLimits {
  /// Octets of a message without its content.
  static constexpr std::uint64_t kSkeleton = std::uint64_t{1024} * 1024;
  static constexpr std::uint32_t kSigners = 32;
  /// Signed attributes of one signer.
  static constexpr std::uint32_t kAttributes = 128;
  static constexpr std::uint32_t kCertificates = 256;
  /// Recipients of a message that is written. One that is read may have as many as fit into kSkeleton.
  static constexpr std::uint32_t kRecipients = 256;
};

}  // namespace OruOssSec

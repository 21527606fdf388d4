#pragma once

#include <cstdint>

namespace OruOssSec {

/// What a message may hold besides its content. A message beyond a limit is refused with a reason, read or
/// written; its content has no limit.
///
/// The limits bound what a hostile message costs before any of it is proven. A protected file takes 2 KiB
/// besides its content.
struct CMSLimits {
  /// Octets of a message without its content.
  static constexpr std::uint64_t kSkeleton = std::uint64_t{1024} * 1024;
};

}  // namespace OruOssSec

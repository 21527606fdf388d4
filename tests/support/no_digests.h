#pragma once

namespace TestSupport {

/// While it lives, OpenSSL finds no digest and no cipher anywhere in the process. For failures that no
/// certificate or message can cause.
class NoDigests {
 public:
  NoDigests();
  ~NoDigests();
  NoDigests(const NoDigests&) = delete;
  NoDigests& operator=(const NoDigests&) = delete;
};

}  // namespace TestSupport

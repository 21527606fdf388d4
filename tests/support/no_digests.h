#pragma once

namespace TestSupport {

/// While it lives, OpenSSL finds no digest and no cipher anywhere in the process: the way in which an
/// operation fails that nothing of a certificate or a message can make fail.
class NoDigests {
 public:
  NoDigests();
  ~NoDigests();
  NoDigests(const NoDigests&) = delete;
  NoDigests& operator=(const NoDigests&) = delete;
};

}  // namespace TestSupport

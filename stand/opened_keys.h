#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "stand/wrapped_key.h"

namespace CryptStand {

/// Room keys that were opened before. Clients send the wrapped key with each file that they open, and
/// verifying and decrypting it takes longer than what they ask for. Safe for any number of threads.
class OpenedKeys {
 public:
  /// What OpenRoomKey() returns for the same arguments. Failures are not kept.
  std::optional<RoomKeyPair> Open(const std::string& wrapped, const Cert& signer, const Identity& wrapping);

  /// Number of keys kept; a test environment has fewer rooms in use at once.
  static constexpr std::size_t kCapacity = 256;

 private:
  /// An opened key, and the certificates that it was opened with.
  struct Entry {
    RoomKeyPair roomKey;
    // Kept alive here, so that no other certificate can have their address.
    Cert signer;
    Cert wrapping;
  };

  std::mutex mutex_;
  std::unordered_map<std::string, Entry> entries_;  // by the wrapped key; guarded by mutex_
};

}  // namespace CryptStand

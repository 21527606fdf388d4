#include "stand/opened_keys.h"

#include <utility>

namespace CryptStand {

// A certificate that was read once stays the same object, so comparing addresses is enough: at worst a
// renewed authority makes a key be opened once more.
std::optional<RoomKeyPair> OpenedKeys::Open(const std::string& wrapped, const Cert& signer,
                                            const Identity& wrapping) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = entries_.find(wrapped);
    if (found != entries_.end() && found->second.signer.Get0() == signer.Get0() &&
        found->second.wrapping.Get0() == wrapping.certificate.Get0()) {
      return found->second.roomKey;
    }
  }
  auto roomKey = OpenRoomKey(wrapped, signer, wrapping);
  if (!roomKey.has_value()) return std::nullopt;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (entries_.size() >= kCapacity) entries_.clear();
  entries_.insert_or_assign(wrapped, Entry{*roomKey, signer, wrapping.certificate});
  return roomKey;
}

}  // namespace CryptStand

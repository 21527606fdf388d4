#pragma once

namespace CryptStand {

/// How the crypt service treats a room.
struct RoomOptions {
  /// Refuse the room's key with the one error that an application can distinguish from all others.
  bool locked = false;
  /// Return the room's private key unencrypted along with the wrapped one.
  bool plainKey = false;
  /// Say that key servers have to be probed before every command.
  bool certAuth = false;
};

}  // namespace CryptStand

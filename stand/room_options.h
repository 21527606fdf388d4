#pragma once

namespace CryptStand {

/// How the crypt service treats a room.
struct RoomOptions {
  /// Refuse the room's key with the one error that an application can tell from all others.
  bool locked = false;
  /// Hand out the room's private key in the clear along with the wrapped one.
  bool plainKey = false;
  /// Say that key servers have to be probed before every command.
  bool certAuth = false;
};

}  // namespace CryptStand

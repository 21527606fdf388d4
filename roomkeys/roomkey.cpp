#include "roomkeys/roomkey.h"

namespace OruKalvix {

void ClearRoomKey(RoomKey& roomKey) noexcept {
  roomKey.room.Clear();
  roomKey.data.Clear();
  roomKey.certificate.Clear();
  roomKey.key.Clear();
}

}  // namespace OruKalvix

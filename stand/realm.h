#pragma once

#include "stand/authority.h"
#include "stand/event_log.h"
#include "stand/faults.h"
#include "stand/rooms.h"
#include "stand/settings.h"
#include "stand/store.h"
#include "stand/tokens.h"

namespace CryptStand {

/// What the servers of one stand share. Each part guards itself.
struct Realm {
  explicit Realm(bool shareKeys) : authority(store, shareKeys), rooms(store, authority) {}

  Store store;
  Authority authority;
  Rooms rooms;
  Settings settings;
  Tokens tokens;
  Faults faults;
  EventLog log;
};

}  // namespace CryptStand

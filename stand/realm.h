#pragma once

#include <cstdint>
#include <optional>

#include "stand/authority.h"
#include "stand/event_log.h"
#include "stand/faults.h"
#include "stand/recording.h"
#include "stand/rooms.h"
#include "stand/settings.h"
#include "stand/store.h"
#include "stand/tokens.h"

namespace CryptStand {

/// What the servers of one test environment share. It owns all parts; each is safe for any number of threads.
struct Realm {
  explicit Realm(bool shareKeys, std::optional<std::uint64_t> seed = std::nullopt)
      : authority(store, shareKeys, seed), rooms(store, authority) {
    if (seed.has_value()) faults.Seed(*seed);
  }

  Store store;
  Authority authority;
  Rooms rooms;
  Settings settings;
  Tokens tokens;
  Faults faults;
  EventLog log;
  Recording recording;
};

}  // namespace CryptStand

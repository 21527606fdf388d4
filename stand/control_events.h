#pragma once

#include "foundation/kvmap.h"
#include "stand/event_log.h"

namespace CryptStand {

/// An event without its exchange and without secrets.
OruGuiBase::KVMap EventObject(const Event& event);

}  // namespace CryptStand

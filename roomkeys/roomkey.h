#pragma once

#include "foundation/ansistr.h"
#include "security/certificate.h"
#include "security/key.h"

namespace OruKalvix {

/// The key of a room. Each operation has one of its own; copies share their contents.
struct RoomKey {
  OruGuiBase::AnsiStr room;            ///< the room as the crypt service spells it
  OruGuiBase::AnsiStr data;            ///< the wrapped key: a CMS message in its text form
  OruOssSec::Certificate certificate;  ///< empty: no usable key
  OruOssSec::PrivateKey key{nullptr};  ///< the unwrapped private key, if the crypt service gave one

  /// Whether files can be protected with it. `key` does not matter for that.
  bool IsUsableForEncryption() const noexcept { return !certificate.IsEmpty() && !data.IsEmpty(); }
};

/// Empties all four fields.
void ClearRoomKey(RoomKey& roomKey) noexcept;

}  // namespace OruKalvix

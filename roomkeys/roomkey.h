#pragma once

#include "foundation/ansistr.h"
#include "security/certificate.h"
#include "security/key.h"

namespace OruKalvix {

/// A room's key as one operation holds it.
struct RoomKey {
  OruGuiBase::AnsiStr room;            ///< the room as the crypt service spells it
  OruGuiBase::AnsiStr data;            ///< the wrapped key: the text of a CMS message
  OruOssSec::Certificate certificate;  ///< empty: no usable key
  OruOssSec::PrivateKey key{nullptr};  ///< the private key in the clear, when the service hands one out

  /// Whether files can be protected with it; `key` plays no part in that.
  bool IsUsableForEncryption() const noexcept { return !certificate.IsEmpty() && !data.IsEmpty(); }
};

/// Empties all four fields.
void ClearRoomKey(RoomKey& roomKey) noexcept;

}  // namespace OruKalvix

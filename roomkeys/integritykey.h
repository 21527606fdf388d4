#pragma once

#include "foundation/ansistr.h"
#include "security/certificate.h"

namespace OruKalvix {

/// The key that a group signs its files with: its name on the key servers, and its certificate. The private
/// key never leaves the key servers.
struct IntegrityKey {
  OruGuiBase::AnsiStr id;
  OruGuiBase::AnsiStr subId;
  OruOssSec::Certificate certificate;

  /// Whether files can be signed with it.
  bool IsUsable() const noexcept { return !id.IsEmpty() && !subId.IsEmpty() && !certificate.IsEmpty(); }
};

}  // namespace OruKalvix

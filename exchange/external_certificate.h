#pragma once

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace OruKalvix {

/// The entry for a certificate in a command. The encoded certificate is sent as the caller gave it.
inline OruGuiBase::KVMap ExternalCertificate(const OruGuiBase::AnsiStr& certificate) noexcept {
  OruGuiBase::KVMap entry;
  entry.Put("type", "externalCertificate");
  entry.Put("encodedCertificate", certificate);
  return entry;
}

}  // namespace OruKalvix

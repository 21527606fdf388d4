#pragma once

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace OruKalvix {

/// A certificate as a command carries it, its text as the caller gave it.
inline OruGuiBase::KVMap ExternalCertificate(const OruGuiBase::AnsiStr& text) noexcept {
  OruGuiBase::KVMap entry;
  entry.Put("type", "externalCertificate");
  entry.Put("encodedCertificate", text);
  return entry;
}

}  // namespace OruKalvix

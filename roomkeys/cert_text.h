#pragma once

#include "foundation/ansistr.h"
#include "security/certificate.h"

namespace OruKalvix {

/// The subject of a certificate as text; empty when it cannot be had.
OruGuiBase::AnsiStr GetCertSubject(const OruOssSec::Certificate& certificate) noexcept;

/// The digest of a certificate as text; empty when it cannot be had.
OruGuiBase::AnsiStr GetCertDigest(const OruOssSec::Certificate& certificate, OruOssSec::SecDigest digest,
                                  OruOssSec::SecEncoding encoding) noexcept;

}  // namespace OruKalvix

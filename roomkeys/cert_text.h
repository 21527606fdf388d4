#pragma once

#include "foundation/ansistr.h"
#include "security/certificate.h"

namespace OruKalvix {

/// The subject of a certificate as a string; empty when it cannot be read.
OruGuiBase::AnsiStr GetCertSubject(const OruOssSec::Certificate& certificate) noexcept;

/// The digest of a certificate in the given encoding; empty when it cannot be computed.
OruGuiBase::AnsiStr GetCertDigest(const OruOssSec::Certificate& certificate, OruOssSec::SecDigest digest,
                                  OruOssSec::SecEncoding encoding) noexcept;

}  // namespace OruKalvix

#pragma once

#include "foundation/ansistr.h"
#include "security/ber/buffer.h"
#include "security/cmsmsg.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// The content type that the contents octets of an OBJECT IDENTIFIER name; Unknown when it has none here.
CMSMsg::Type FindContentType(const BerBuffer& oid) noexcept;
/// Its name in RFC 5652 and its companions without the "id-", or the OID in dotted text. False when the
/// octets are no OID.
bool GetContentTypeName(const BerBuffer& oid, OruGuiBase::AnsiStr& name) noexcept;
/// OID in dotted text.
OruGuiBase::AnsiStr GetDottedText(const ASN1_OBJECT* object) noexcept;

}  // namespace OruOssSec

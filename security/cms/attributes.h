#pragma once

#include "foundation/blob.h"
#include "foundation/datetime.h"
#include "foundation/kvmap.h"
#include "security/ber/buffer.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// Adds the content type (RFC 5652, 11.1), that of plain data.
bool AddContentType(CMS_SignerInfo* signer) noexcept;
/// Adds the digest of the content (11.2).
bool AddMessageDigest(CMS_SignerInfo* signer, const OruGuiBase::BlobConst& digest) noexcept;
/// Adds the signing time (11.3): UTCTime from 1950 to 2049, GeneralizedTime otherwise.
bool AddSigningTime(CMS_SignerInfo* signer, const OruGuiBase::DateTime& time) noexcept;
/// Adds texts by OID as UTF8String. An OID that is there already is a failure.
bool AddTextAttributes(CMS_SignerInfo* signer, const OruGuiBase::KVMap& attributes) noexcept;
/// The octets that a signature is made over (5.4): the DER encoding of the signed attributes as a SET OF.
bool EncodeSignedAttributes(const CMS_SignerInfo* signer, BerBuffer& encoded) noexcept;

}  // namespace OruOssSec

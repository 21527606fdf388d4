#pragma once

#include "foundation/blob.h"
#include "foundation/file.h"
#include "security/export.h"

namespace OruOssSec {

/// Computes the digest of a file's bytes, of any number. `algorithm` is "SHA-256", "SHA-384" or "SHA-512".
/// False with the reason in the error state; `digest` is then left alone.
ORUSEC_EXPORT bool DigestFile(const OruGuiBase::File& file, const char* algorithm,
                              OruGuiBase::Blob& digest) noexcept;

}  // namespace OruOssSec

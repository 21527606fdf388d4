#pragma once

#include <openssl/evp.h>
#include <string>

#include "stand/cert_maker.h"

namespace CryptStand {

/// An identity that keys can be wrapped for; made once for each name.
const Identity& Reader(const std::string& name);
/// Whether a wrapped key can be opened with this identity alone.
bool OpensFor(const std::string& wrapped, const Identity& reader);
/// SHA-2 of a string.
std::string HashOf(const std::string& text, const EVP_MD* method);

}  // namespace CryptStand

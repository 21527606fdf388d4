#pragma once

#include <openssl/evp.h>
#include <string>

#include "stand/cert_maker.h"

namespace CryptStand {

/// Someone whom keys can be wrapped for; made once for each name.
const Identity& Reader(const std::string& name);
/// Whether a wrapped key opens for someone who holds nothing but the identity.
bool OpensFor(const std::string& wrapped, const Identity& reader);
/// SHA-2 of a text.
std::string HashOf(const std::string& text, const EVP_MD* method);

}  // namespace CryptStand

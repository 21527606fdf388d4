#pragma once

#include <string>

#include "stand/cert_maker.h"

namespace CryptStand {

/// The result of reading a private key.
enum class KeyReading {
  Good,
  NotBase64,      ///< The string is neither PEM nor base64.
  NotAKey,        ///< It encodes something else than an RSA private key.
  WrongPassword,  ///< The key is under another password, or under none although one was given.
};

/// Reads an RSA private key. The forms are PEM and base64 of DER; both of PKCS #8 (RFC 5958), encrypted or
/// not, and of the traditional form (RFC 8017), encrypted in PEM alone; and base64 of PKCS #12 (RFC 7292).
/// `key` is empty unless the result is Good.
KeyReading ReadPrivateKey(const std::string& text, const std::string& password, KeyPair& key);

}  // namespace CryptStand

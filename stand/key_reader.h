#pragma once

#include <string>

#include "stand/cert_maker.h"

namespace CryptStand {

/// What reading a private key came to.
enum class KeyReading {
  Good,
  NotBase64,      ///< The text is neither PEM nor base64.
  NotAKey,        ///< What it encodes is no RSA private key.
  WrongPassword,  ///< The key is under another password, or under none although one was given.
};

/// Reads an RSA private key from text: PEM, or base64 of the DER form, of PKCS #8 (RFC 5958) in the clear or
/// under a password, of the traditional form in the clear or (in PEM alone) under a password, or base64 of
/// PKCS #12 (RFC 7292). `key` is empty unless the reading is good.
KeyReading ReadPrivateKey(const std::string& text, const std::string& password, KeyPair& key);

}  // namespace CryptStand

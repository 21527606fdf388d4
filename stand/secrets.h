#pragma once

#include <string>

#include "stand/recorded_exchange.h"
#include "stand/wire.h"

// What a log of exchanges must not show to everybody who can reach the page: tokens, private keys, plain
// content keys, passwords.
namespace CryptStand {

/// Stands in the place of a secret.
inline constexpr const char* kHidden = "<hidden>";

bool IsSecretHeader(const std::string& name);
/// Whether the value of a header is secret although its name does not say so.
bool IsSecretHeaderValue(const std::string& name, const std::string& value);
/// The value with "<hidden>" in the place of each secret member or string, however deep, and in the
/// place of whatever is nested too deep to be shown.
Val HideSecrets(const Val& value);
/// The target of a request with "<hidden>" in the place of secret values of its query.
std::string HideInTarget(const std::string& target);
/// Whether a string, or a body that is no JSON, may contain a secret: a private key in PEM, or a secret name
/// with a value after it.
bool MayHoldSecret(const std::string& text);

}  // namespace CryptStand

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
/// The value with "<hidden>" in the place of each secret member, however deep, and of whatever is nested
/// deeper than anything that is shown.
Val HideSecrets(const Val& value);
/// Whether bytes that are no JSON may contain a secret.
bool MayHoldSecret(const std::string& body);

}  // namespace CryptStand

#pragma once

/// Marks the members of CryptClient that libcryptcli exports. All other symbols of the shared object are
/// hidden.
#define CRYPTCLI_EXPORT __attribute__((visibility("default")))

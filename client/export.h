#pragma once

/// Marks the members of CryptClient that libcryptcli hands out; everything else stays hidden in the shared
/// object.
#define CRYPTCLI_EXPORT __attribute__((visibility("default")))

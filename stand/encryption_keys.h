#pragma once

#include <vector>

#include "stand/commands.h"

namespace CryptStand {

/// Reads {"type":"externalCertificate","encodedCertificate":STRING}. Success or the code of the refusal.
Code ReadEncryptionKey(const KVMap& object, Cert& certificate);
/// Reads the array "encryptionKeys" of such objects from a payload. Success or the code of the refusal.
Code ReadEncryptionKeys(const KVMap& payload, std::vector<Cert>& certificates);

}  // namespace CryptStand

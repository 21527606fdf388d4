#pragma once

#include <optional>
#include <string>
#include <vector>

#include "stand/cert_maker.h"

namespace CryptStand {

/// A room key as a key server made it.
struct RoomKeyPair {
  Cert certificate;
  KeyPair key;
  /// Certificates of those besides the key servers that it was found wrapped for.
  std::vector<Cert> readers{};
};

/// Wraps a room key: base64 of a CMS SignedData (RFC 5652) by `signer` around a JSON object with
/// "encodedInnerSigningCertificate" (the signer), "encodedX509Certificate" (the room key's certificate),
/// "encodedPrivateKey" (base64 of a CMS EnvelopedData around PKCS #8, for `wrapping` and every reader) and
/// "readers" (an array of the readers' certificates). Certificates are base64. Empty on failure.
std::string WrapRoomKey(const RoomKeyPair& roomKey, const Identity& signer, const Cert& wrapping,
                        const std::vector<Cert>& readers);

/// The reverse. None when the text is damaged, when `signer` did not sign it, or when it was not wrapped for
/// `wrapping`.
std::optional<RoomKeyPair> OpenRoomKey(const std::string& wrapped, const Cert& signer,
                                       const Identity& wrapping);

/// Whether keys can be wrapped for a certificate: its key has to be of a type that transports or agrees keys.
bool CanWrapFor(const Cert& certificate);

}  // namespace CryptStand

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "stand/cert_maker.h"

namespace CryptStand {

/// A room key as a key server generated it.
struct RoomKeyPair {
  Cert certificate;
  KeyPair key;
  /// The certificates that the key was wrapped for, except the key servers' own. Set when the key is opened.
  std::vector<Cert> readers{};
};

/// Wraps a room key: base64 of a CMS SignedData (RFC 5652) by `signer` around a JSON object with
/// "encodedInnerSigningCertificate" (the signer), "encodedX509Certificate" (the room key's certificate),
/// "encodedPrivateKey" (base64 of a CMS EnvelopedData around PKCS #8, for `wrapping` and every reader) and
/// "readers" (an array of the readers' certificates). Certificates are base64. Empty on failure.
std::string WrapRoomKey(const RoomKeyPair& roomKey, const Identity& signer, const Cert& wrapping,
                        const std::vector<Cert>& readers);

/// Opens a wrapped key. None if it is damaged, if `signer` did not sign it, or if it was not wrapped for
/// `wrapping`.
std::optional<RoomKeyPair> OpenRoomKey(const std::string& wrapped, const Cert& signer,
                                       const Identity& wrapping);

/// Whether keys can be wrapped for a certificate: its key must allow key transport or key agreement.
bool CanWrapFor(const Cert& certificate);

}  // namespace CryptStand

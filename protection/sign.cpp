// Signing of hashes by a key server: for applications (Sign), and for the security library while Encrypt
// writes a SignedData (SignHash).
#include "client/cryptcli.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "foundation/encoding.h"
#include "foundation/errorstate.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::BlobConst;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// PKCS #1 v1.5 with SHA-512 (RFC 8017, section 8.2): the digest has to be the one that Encrypt's SignedData
// uses.
constexpr const char* kIntegrityAlgorithm = "RSASSA-PKCS1-v1_5-SHA-512";

AnsiStr EncodeBase64(const BlobConst& bytes) noexcept {
  return OruGuiBase::Binary2B64Str(bytes.data, bytes.size, 0, "\r\n");
}

}  // namespace

// The protocol takes a list of hashes; this client sends one. The crypt service sees the key in the token
// request and may refuse it there.
bool CryptClient::KeyServerSign(const KVMap& key, const AnsiStr& algorithm, const BlobConst& hash,
                                Blob& signature) noexcept {
  Array<Val> hashes;
  hashes.Append(Val(EncodeBase64(hash)));
  KeyServerRequest request(KeyServerCommand::Sign, room, key);
  request.payload.Put("signatureKey", Val(key));
  request.payload.Put("algorithm", algorithm);
  request.payload.Put("hashesToBeSigned", Val(hashes));
  return RunCommand(request, [&](const KVMap& payload) noexcept {
    const AnsiStr encoded = MemberReader(payload).FirstString("signedHashes");
    if (encoded.IsEmpty()) return Fail("Could not sign hash: Invalid signedHashes");
    if (!OruGuiBase::B64Str2Blob(encoded, signature, "\r\n")) return Fail("Could not decode signedHashes");
    return true;
  });
}

// The security library that calls back does not know this object's message. So both failures put their
// message into the error state, from where Encrypt takes it into its own: "Could not sign file: ...".
bool CryptClient::SignHash(const BlobConst& hash, Blob& signature) noexcept {
  if (!integrityKey.IsUsable()) {
    OruGuiBase::SetErrorMessage("Could not sign hash: Invalid integrity key");
    return false;
  }
  const KVMap key = GetKeyHandle(integrityKey.id, integrityKey.subId);
  if (!KeyServerSign(key, kIntegrityAlgorithm, hash, signature)) {
    OruGuiBase::SetErrorMessage(errorMessage);
    return false;
  }
  return true;
}

bool CryptClient::Sign(const KVMap& key, const AnsiStr& algorithm, const AnsiStr& hash,
                       AnsiStr& signature) noexcept {
  Blob bytes;
  if (!OruGuiBase::B64Str2Blob(hash, bytes, "\r\n")) return Fail("Invalid base64 hash %s", hash.GetText());
  Blob value;
  if (!KeyServerSign(key, algorithm, bytes.View(), value)) return false;
  signature = EncodeBase64(value.View());
  return true;
}

}  // namespace OruKalvix

#include "client/cryptcli.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "foundation/encoding.h"
#include "foundation/errorstate.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::Blob;
using OruGuiBase::BlobConst;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

constexpr const char* kIntegrityAlgorithm = "RSASSA-PKCS1-v1_5-SHA-512";

// Decodes base64 whose line ends do not count. The text's padding makes the first guess of the size too
// large; the decoder tells the true one. On failure the bytes are emptied.
bool DecodeBase64(const AnsiStr& text, Blob& bytes) noexcept {
  auto size = static_cast<std::uint32_t>(std::uint64_t{text.GetLength()} * 6 / 8);
  std::uint8_t* data = bytes.Alloc(size);
  const bool hasRoom = data != nullptr || size == 0;
  if (!hasRoom || !OruGuiBase::B64Str2Binary(text, data, size, "\r\n")) {
    bytes.Clear();
    return false;
  }
  bytes.Trunc(size);
  return true;
}

AnsiStr EncodeBase64(const BlobConst& bytes) noexcept {
  return OruGuiBase::Binary2B64Str(bytes.data, bytes.size, 0, "\r\n");
}

}  // namespace

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
    if (!DecodeBase64(encoded, signature)) return Fail("Could not decode signedHashes");
    return true;
  });
}

// The security library that calls back knows nothing of this object's messages: both failures leave their
// text in the error state, from where it reaches the message of the operation that signs.
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
  if (!DecodeBase64(hash, bytes)) return Fail("Invalid base64 hash %s", hash.GetText());
  Blob value;
  if (!KeyServerSign(key, algorithm, bytes.View(), value)) return false;
  signature = EncodeBase64(value.View());
  return true;
}

}  // namespace OruKalvix

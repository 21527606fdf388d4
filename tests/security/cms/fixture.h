#pragma once

#include <algorithm>
#include <openssl/evp.h>
#include <string>
#include <string_view>

#include "foundation/blob.h"
#include "foundation/kvmap.h"
#include "security/cmsmsg.h"
#include "security/cryptomessagesyntax.h"
#include "tests/security/test_pki.h"
#include "tests/support/files.h"

// What the tests of CMS share: a signer that has its key, and messages of ours in files.
namespace SecurityTest {

using OruGuiBase::AnsiStr;
using OruGuiBase::Blob;
using OruGuiBase::BlobConst;
using OruGuiBase::File;
using OruGuiBase::KVMap;
using OruOssSec::CMSMsg;
using TestSupport::ScratchDirectory;

/// Signs with a key, counts its calls and keeps the last hash.
class KeySigner final : public OruOssSec::ISignHash {
 public:
  explicit KeySigner(const KeyPair& key) : key_(key) {}
  bool SignHash(const BlobConst& hash, Blob& signature) override {
    ++calls;
    lastHash.assign(reinterpret_cast<const char*>(hash.data), hash.size);
    const std::string value = key_.SignHash(lastHash);
    std::copy(value.begin(), value.end(), signature.Alloc(static_cast<std::uint32_t>(value.size())));
    return !value.empty();
  }

  int calls = 0;
  std::string lastHash;

 private:
  KeyPair key_;
};

/// The root and the signer that the tests use, made once.
inline const Identity& Root() {
  static const Identity root = Identity::MakeRoot(CertSpec::Authority("Test Root"), SharedKey(0));
  return root;
}
inline const Identity& Signer() {
  static const Identity signer = Identity::MakeIssued(CertSpec::EndEntity("Signer"), Root(), SharedKey(1));
  return signer;
}
inline const Identity& Room() {
  static const Identity room = Identity::MakeIssued(CertSpec::EndEntity("Room"), Root(), SharedKey(2));
  return room;
}

inline OruOssSec::PrivateKey ToPrivateKey(const KeyPair& pair) {
  OruOssSec::PrivateKey key(nullptr);
  key.Load(ToText(pair.ToPEM()), OruOssSec::ASN1::Encoding::Text);
  return key;
}

inline std::string ToString(const Blob& blob) {
  return std::string(reinterpret_cast<const char*>(blob.GetData()), blob.GetSize());
}

/// `size` bytes that differ from place to place.
inline std::string MakeBytes(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t state = 1;
  for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
  return bytes;
}

/// Signs `content` as Signer() into `target`.
inline bool SignFile(const File& content, const File& target, const KVMap& attributes = {},
                     const OruGuiBase::DateTime* time = nullptr) {
  KeySigner signer(Signer().key);
  return OruOssSec::CryptoMessageSyntax::Sign(content, target, ToCertificate(Signer().certificate), &signer,
                                              attributes, time);
}

/// Envelopes `content` for Room() into `target`.
inline bool EnvelopeFile(const File& content, const File& target) {
  CMSMsg message;
  return message.CreateEnvelopedData(OruOssSec::CipherAlgorithm::AES256CBC) &&
         message.AddRecipient(ToCertificate(Room().certificate)) &&
         message.Save(CMSMsg::Format::BERStream, content, target);
}

/// The reason of a failed operation; empty after a success.
inline std::string ReasonOf(bool success) {
  return success ? "" : GetReason();
}

/// The content of a message from GetContent into memory, or the reason of its failure.
inline std::string ContentOf(const CMSMsg& message) {
  Blob content;
  return message.GetContent(content) ? ToString(content) : GetReason();
}

}  // namespace SecurityTest

// Loads the input as a private key. Any key that loads is tried on an envelope, as the client does with an
// unencrypted key from the crypt service.
#include <cstdint>

#include "fuzz/support/base64_mutator.h"
#include "fuzz/support/message.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "security/cmsmsg.h"
#include "security/key.h"

namespace {

using Fuzz::World;
using OruOssSec::PrivateKey;

void TryOnEnvelope(const PrivateKey& key) {
  const World& world = World::Get();
  static const OruOssSec::Certificate certificate = World::Load(world.room.certificate);
  static const OruGuiBase::File file =
      Fuzz::Scratch::Get().Make("envelope", world.Find(world.envelopes, "genuine"));
  OruOssSec::CMSMsg message;
  Fuzz::Require(message.Load(file), "the envelope can be loaded");
  OruGuiBase::Blob content;
  if (!message.SetRecipientKey(certificate, key) || !message.GetContent(content)) Fuzz::RequireReason();
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return Fuzz::MutateBase64(data, size, maxSize, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const PrivateKey usual = World::Load(World::Get().room.key);
  PrivateKey key = usual;
  if (!key.Load(Fuzz::Ansi(Fuzz::View(data, size)), OruOssSec::ASN1::Encoding::Text)) {
    Fuzz::RequireReason();
    Fuzz::Require(key.Get0() == usual.Get0(), "a failure leaves the key as it was");
    return 0;
  }
  Fuzz::Require(!key.IsEmpty() && key.Get0() != usual.Get0(), "what was loaded is there");
  TryOnEnvelope(key);
  Fuzz::Require(Fuzz::Scratch::Get().IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}

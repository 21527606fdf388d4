// Loads the input as one certificate and as a list of certificates. A chain to the world's root must prove
// only keys that the world's authorities have certified.
#include <cstdint>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "fuzz/support/base64_mutator.h"
#include "fuzz/support/message.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "security/certificate.h"
#include "security/certstore.h"

namespace {

using Fuzz::Require;
using Fuzz::World;
using OruGuiBase::AnsiStr;
using OruGuiBase::DateTime;
using OruGuiBase::PtrContainerQueue;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::SecDigest;
using OruOssSec::SecEncoding;

constexpr DateTime kTime{2024, 5, 15, 12, 0, 0};

bool HasKeyOf(const Certificate& certificate, const CryptStand::Identity& identity) {
  EVP_PKEY* const key = X509_get0_pubkey(certificate.Get0());
  return key != nullptr && EVP_PKEY_eq(key, identity.key.Get0()) == 1;
}

// By key, since an input may contain a certificate of the world in another encoding. The outsider is not
// among these.
bool IsOfTheWorld(const Certificate& certificate) {
  const World& world = World::Get();
  for (const auto* identity : {&world.root, &world.intermediate, &world.issuing, &world.innerSigning,
                               &world.room, &world.integrity}) {
    if (HasKeyOf(certificate, *identity)) return true;
  }
  return false;
}

const CertStore& GetWorldStore() {
  // Made once and never freed: every input needs it.
  static const CertStore* const store = [] {
    auto* const made = new CertStore;
    World::Fill(*made);
    Require(made->Add(World::Load(World::Get().innerSigning.certificate)), "a certificate can be added");
    return made;
  }();
  return *store;
}

void CheckChain(const Certificate& certificate) {
  for (const bool isPartial : {false, true}) {
    PtrContainerQueue<Certificate> chain;
    const auto result = certificate.VerifyChain(GetWorldStore(), &chain, /*checkRevocation=*/false, isPartial,
                                                kTime, /*ignoreTime=*/false);
    Require((result.code == 0) != chain.IsEmpty(), "a chain is there when it verifies");
    Require(result.code == 0 || !result.GetResultString().IsEmpty(), "a chain that fails has a reason");
    if (result.code == 0) Require(IsOfTheWorld(certificate), "a chain proves certified keys alone");
  }
}

void CheckCertificate(const AnsiStr& text) {
  Certificate certificate;
  if (!certificate.Load(text, OruOssSec::ASN1::Encoding::Text)) {
    Fuzz::RequireReason();
    Require(certificate.IsEmpty(), "a failure leaves the certificate as it was");
    return;
  }
  Require(!certificate.IsEmpty(), "what was loaded is there");
  AnsiStr digest;
  if (certificate.GetDigest(SecDigest::SHA256, SecEncoding::HexLower, digest))
    Require(digest.GetLength() == 64, "a SHA-256 has 64 digits");
  AnsiStr subject;
  if (!certificate.GetSubject(subject)) Fuzz::RequireReason();
  Require(Certificate::Compare(certificate, certificate) == 0, "a certificate is itself");
  CheckChain(certificate);
}

void CheckStore(const AnsiStr& text) {
  CertStore store;
  unsigned int count = 0;
  if (!store.Load(text, &count)) {
    Fuzz::RequireReason();
    Require(store.Get0() == nullptr, "a list that cannot be read adds nothing");
    return;
  }
  Require((count == 0) == (store.Get0() == nullptr), "the number read is the number in the store");
  static const Certificate foreign = World::Load(World::Get().outsider.certificate);
  const auto result = foreign.VerifyChain(store, nullptr, /*checkRevocation=*/false,
                                          /*allowPartialChain=*/false, kTime, /*ignoreTime=*/false);
  Require(result.code != 0, "no list vouches for somebody whose authority is unknown");
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return Fuzz::MutateBase64(data, size, maxSize, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const AnsiStr text = Fuzz::Ansi(Fuzz::View(data, size));
  CheckCertificate(text);
  CheckStore(text);
  return 0;
}

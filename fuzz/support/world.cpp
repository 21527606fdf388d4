// Loads the keys, certificates and messages of the world, which are built into the program: a target must not
// depend on files that a fuzzer's machine may lack. fuzz/make-seeds.sh --world makes them.
#include "fuzz/support/world.h"

#include "fuzz/support/require.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world_data.h"

namespace Fuzz {
namespace {

using CryptStand::Cert;
using CryptStand::Identity;
using CryptStand::KeyPair;

std::string_view TextOf(std::string_view name) {
  for (const WorldFile& file : GetWorldFiles()) {
    if (file.name == name) return file.text;
  }
  Require(false, "the world has the file");
  return {};
}

Identity ReadIdentity(std::string_view name) {
  const std::string_view pem = TextOf(name);
  Identity identity{Cert::FromPEM(pem), KeyPair::FromPEM(pem)};
  Require(!identity.certificate.IsEmpty() && !identity.key.IsEmpty(), "a file of the world is an identity");
  return identity;
}

std::string Decode(std::string_view base64) {
  std::string bytes;
  Require(DecodeBase64(base64, bytes), "a file of the world is base64");
  return bytes;
}

// The files "<type>-<name>.b64" of the world.
std::vector<Sample> ReadSamples(std::string_view type) {
  std::vector<Sample> samples;
  for (const WorldFile& file : GetWorldFiles()) {
    if (!file.name.starts_with(type)) continue;
    std::string name(file.name.substr(type.size()));
    samples.push_back({name.substr(0, name.size() - std::string_view(".b64").size()), Decode(file.text)});
  }
  Require(!samples.empty(), "the world has samples of the type");
  return samples;
}

}  // namespace

World::World()
    : root(ReadIdentity("root.pem")),
      intermediate(ReadIdentity("intermediate.pem")),
      issuing(ReadIdentity("issuing.pem")),
      innerSigning(ReadIdentity("innersigning.pem")),
      room(ReadIdentity("room.pem")),
      integrity(ReadIdentity("integrity.pem")),
      outsider(ReadIdentity("outsider.pem")),
      envelopes(ReadSamples("envelope-")),
      contents(ReadSamples("content-")),
      forms(ReadSamples("form-")),
      wrappedKey(CryptStand::ToBase64(Decode(TextOf("wrappedkey.b64")))) {}

const World& World::Get() {
  static const World world;
  return world;
}

std::string World::CertStoreText() const {
  return root.certificate.ToPEM() + intermediate.certificate.ToPEM();
}

std::string World::TrustStoreText() const {
  return issuing.certificate.ToPEM();
}

const std::string& World::Find(const std::vector<Sample>& samples, std::string_view name) const {
  for (const Sample& sample : samples) {
    if (sample.name == name) return sample.bytes;
  }
  Require(false, "the world has the sample");
  return samples.front().bytes;
}

OruOssSec::Certificate World::Load(const Cert& certificate) {
  OruOssSec::Certificate loaded;
  Require(loaded.Load(Ansi(certificate.ToPEM()), OruOssSec::ASN1::Encoding::Text),
          "a certificate of the world can be loaded");
  return loaded;
}

OruOssSec::PrivateKey World::Load(const KeyPair& key) {
  OruOssSec::PrivateKey loaded(nullptr);
  Require(loaded.Load(Ansi(key.ToPEM()), OruOssSec::ASN1::Encoding::Text),
          "a key of the world can be loaded");
  return loaded;
}

void World::Fill(OruOssSec::CertStore& store) {
  const World& world = Get();
  Require(store.Load(Ansi(world.CertStoreText() + world.TrustStoreText()), nullptr),
          "the lists of the world can be loaded");
}

}  // namespace Fuzz

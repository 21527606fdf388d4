// The certificates and keys that nearly all tests share. Made once per process, since making keys takes long.
#include "tests/support/pki.h"

#include <gtest/gtest.h>

#include "tests/support/messages.h"
#include "tests/support/text.h"

namespace TestSupport {

namespace {

const Validity& ValidTime() {
  static const Validity validity = Validity::Between("2020-01-01", "2040-01-01");
  return validity;
}

Pki MakePki() {
  Pki pki;
  pki.root = Identity::MakeRoot(Authority("Root"), KeyPair::MakeEC());
  pki.intermediate = Identity::MakeIssued(Authority("Intermediate"), pki.root, KeyPair::MakeEC());
  pki.issuing = Identity::MakeIssued(Authority("Issuing"), pki.intermediate, KeyPair::MakeEC());
  pki.innerSigning = Identity::MakeIssued(Authority("Inner signing"), pki.issuing, KeyPair::MakeEC());
  pki.room = Identity::MakeIssued(EndEntity("room 1-tr"), pki.innerSigning, KeyPair::MakeRSA());
  pki.integrity = Identity::MakeIssued(EndEntity("integrity"), pki.issuing, KeyPair::MakeRSA());
  return pki;
}

}  // namespace

const Pki& Pki::Get() {
  static const Pki pki = MakePki();
  return pki;
}

std::string Pki::GetCertStore() const {
  return root.certificate.ToPEM() + intermediate.certificate.ToPEM();
}

std::string Pki::GetTrustStore() const {
  return issuing.certificate.ToPEM();
}

CertSpec EndEntity(std::string commonName) {
  CertSpec spec = CertSpec::EndEntity(std::move(commonName));
  spec.validity = ValidTime();
  return spec;
}

CertSpec Authority(std::string commonName) {
  CertSpec spec = CertSpec::Authority(std::move(commonName));
  spec.validity = ValidTime();
  return spec;
}

KeyPair MakeWeakRSA() {
  constexpr unsigned kBits = 1024;
  return KeyPair::MakeRSA(kBits);
}

std::string WrappedKey(const Cert& innerSigning) {
  return WrappedText(R"({"version":1,"encodedInnerSigningCertificate":)" + Quoted(innerSigning.ToBase64()) +
                     "}");
}

std::string WrappedText(std::string_view content) {
  SignerSpec signer;
  signer.identity = Pki::Get().innerSigning;
  return ToBase64(MakeSigned(content, {signer}));
}

OruOssSec::Certificate LoadCert(const Cert& certificate) {
  OruOssSec::Certificate loaded;
  EXPECT_TRUE(loaded.Load(Ansi(certificate.ToPEM()), OruOssSec::ASN1::Encoding::Text));
  return loaded;
}

OruOssSec::PrivateKey LoadKey(const KeyPair& key) {
  OruOssSec::PrivateKey loaded(nullptr);
  EXPECT_TRUE(loaded.Load(Ansi(key.ToPEM()), OruOssSec::ASN1::Encoding::Text));
  return loaded;
}

}  // namespace TestSupport

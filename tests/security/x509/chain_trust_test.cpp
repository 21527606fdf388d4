#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include "security/certificate.h"
#include "tests/security/x509/chain_fixture.h"

namespace {

using namespace SecurityTest;
using OruOssSec::Certificate;
using OruOssSec::CertStore;

// Self-signed certificates and partial chains

TEST(VerifyChain, AcceptsASelfSignedCertificateOfTheStoreAsAChainOfOne) {
  const Cert self = Cert::SelfSign(Spec(CertSpec::EndEntity("self")), SharedKey(3));
  for (const bool partial : {false, true}) {
    const Outcome outcome = Verify(self, {self}, {.allowPartialChain = partial});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.chain, Names{"self"});
  }
}

TEST(VerifyChain, FailsForASelfSignedCertificateOutsideTheStore) {
  const Cert self = Cert::SelfSign(Spec(CertSpec::EndEntity("self")), SharedKey(3));
  for (const bool partial : {false, true}) {
    EXPECT_EQ(Verify(self, {Sample().root.certificate}, {.allowPartialChain = partial}).code,
              X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
  }
}

TEST(VerifyChain, FailsForASelfSignedMimicOfARoot) {
  const Identity mimic = Root("root", 2);
  for (const bool partial : {false, true}) {
    EXPECT_NE(Verify(mimic.certificate, {Sample().root.certificate}, {.allowPartialChain = partial}).code, 0);
  }
}

TEST(VerifyChain, EndsAPartialChainInAnyCertificateOfTheStore) {
  const Hierarchy& sample = Sample();
  const Outcome outcome = Verify(sample.leaf, {sample.middle.certificate}, {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.chain, (Names{"leaf", "middle"}));
}

// A room key's signer was added to the store last and is no root.
TEST(VerifyChain, BeginsAPartialChainWithLeafAndIssuer) {
  const Hierarchy& sample = Sample();
  const Identity inner = Authority("inner", 2, sample.middle);
  const Cert roomKey = Leaf(inner, CertSpec::EndEntity("room key"));
  const Outcome outcome =
      Verify(roomKey, {sample.root.certificate, sample.middle.certificate, inner.certificate},
             {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  ASSERT_GE(outcome.chain.size(), 2U);
  EXPECT_EQ(outcome.chain[0], "room key");
  EXPECT_EQ(outcome.chain[1], "inner");
}

TEST(VerifyChain, NamesTheIssuerInAPartialChainOfALeafInTheStore) {
  const Hierarchy& sample = Sample();
  const Outcome outcome =
      Verify(sample.leaf, {sample.leaf, sample.middle.certificate}, {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.chain, (Names{"leaf", "middle"}));
}

TEST(VerifyChain, ReturnsOnlyTheLeafWhenItsIssuerIsMissing) {
  const Outcome outcome = Verify(Sample().leaf, {Sample().leaf}, {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.chain, Names{"leaf"});
}

TEST(VerifyChain, TakesNoLeafAsARootWithoutPartialChains) {
  EXPECT_NE(Verify(Sample().leaf, {Sample().leaf}).code, 0);
  EXPECT_NE(Verify(Sample().leaf, {Sample().leaf, Sample().middle.certificate}).code, 0);
}

TEST(VerifyChain, ChecksTimeAndSignatureOfAPartialChain) {
  const Hierarchy& sample = Sample();
  const std::vector<Cert> trusted = {sample.middle.certificate};
  EXPECT_EQ(Verify(Spoilt(sample.leaf), trusted, {.allowPartialChain = true}).code,
            X509_V_ERR_CERT_SIGNATURE_FAILURE);
  EXPECT_EQ(Verify(sample.leaf, trusted, {.allowPartialChain = true, .time = At(1999, 1, 1)}).code,
            X509_V_ERR_CERT_NOT_YET_VALID);
}

TEST(VerifyChain, FailsForAPartialChainUnderAnIssuerThatIsNoAuthority) {
  CertSpec spec = Spec(CertSpec::EndEntity("no authority"));
  spec.keyUsage = "";
  const Identity issuer = Identity::MakeIssued(spec, Sample().root, SharedKey(1));
  EXPECT_NE(Verify(Leaf(issuer), {issuer.certificate}, {.allowPartialChain = true}).code, 0);
}

// Revocation

TEST(VerifyChain, FailsWhenRevocationIsAskedForAndThereAreNoLists) {
  const Hierarchy& sample = Sample();
  for (const bool partial : {false, true}) {
    EXPECT_EQ(Verify(sample.leaf, {sample.root.certificate, sample.middle.certificate},
                     {.checkRevocation = true, .allowPartialChain = partial})
                  .code,
              X509_V_ERR_UNABLE_TO_GET_CRL);
  }
}

// Authorities that renew keys and certificates under one name

TEST(VerifyChain, FindsTheIssuerAmongSeveralKeysOfOneName) {
  const Identity old = Root("root", 0);
  const Identity young = Root("root", 1);
  for (const Identity* issuer : {&old, &young}) {
    for (const auto& store : {std::vector<Cert>{old.certificate, young.certificate},
                              std::vector<Cert>{young.certificate, old.certificate}}) {
      EXPECT_EQ(Verify(Leaf(*issuer), store).code, 0);
      EXPECT_EQ(Verify(issuer->certificate, store).code, 0);
    }
  }
}

TEST(VerifyChain, FindsTheIssuerBySignatureWhenThereAreNoKeyIdentifiers) {
  CertSpec spec = Spec(CertSpec::Authority("root"));
  spec.hasSubjectKeyId = false;
  const Identity old = Identity::MakeRoot(spec, SharedKey(0));
  spec.validity = Validity::Between("2010-01-01", "2070-01-01");
  const Identity young = Identity::MakeRoot(spec, SharedKey(1));
  for (const Identity* issuer : {&old, &young}) {
    const std::vector<Cert> store = {old.certificate, young.certificate};
    EXPECT_EQ(Verify(Leaf(*issuer), store).code, 0);
    EXPECT_EQ(Verify(issuer->certificate, store).code, 0);
  }
}

TEST(VerifyChain, PrefersTheCertificateThatIsValidAtTheTime) {
  const Identity lapsed = Identity::MakeRoot(Spec(CertSpec::Authority("root"), kYear), SharedKey(0));
  const Identity renewed = Identity::MakeRoot(
      Spec(CertSpec::Authority("root"), Validity::Between("2026-01-01", "2030-01-01")), SharedKey(0));
  const Cert leaf = Leaf(renewed);
  const std::vector<Cert> store = {lapsed.certificate, renewed.certificate};
  EXPECT_EQ(Verify(leaf, store, {.time = At(2025, 6, 1)}).code, 0);
  EXPECT_EQ(Verify(leaf, store, {.time = At(2028, 6, 1)}).code, 0);
  EXPECT_EQ(Verify(leaf, store, {.time = At(2031, 6, 1)}).code, X509_V_ERR_CERT_HAS_EXPIRED);
}

TEST(VerifyChain, PrefersTheCertificateThatIsValidLonger) {
  const Identity first = Root("root", 0);
  const CertSpec spec = Spec(CertSpec::Authority("root"), Validity::Between("2000-01-01", "2070-01-01"));
  const Identity second = Identity::MakeRoot(spec, SharedKey(0));
  for (const auto& certificates : {std::vector<Cert>{first.certificate, second.certificate},
                                   std::vector<Cert>{second.certificate, first.certificate}}) {
    CertStore store;
    Fill(store, certificates);
    Chain chain;
    ASSERT_EQ(ToCertificate(Leaf(first))
                  .VerifyChain(store, &chain, /*checkRevocation=*/false, /*allowPartialChain=*/false, kNow,
                               /*ignoreTime=*/false)
                  .code,
              0);
    EXPECT_EQ(Certificate::Compare(*chain.Get(1), ToCertificate(second.certificate)), 0);
  }
}

TEST(VerifyChain, AcceptsARootBesideARenewalThatIsValidLonger) {
  const Identity first = Root("root", 0);
  const CertSpec spec = Spec(CertSpec::Authority("root"), Validity::Between("2000-01-01", "2070-01-01"));
  const Identity renewed = Identity::MakeRoot(spec, SharedKey(0));
  for (const Identity* root : {&first, &renewed}) {
    const Outcome outcome = Verify(root->certificate, {first.certificate, renewed.certificate});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.chain, Names{"root"});
  }
}

// Two keys of a root have certified each other.
TEST(VerifyChain, DoesNotRunInCirclesBetweenCrossCertificates) {
  const Identity old = Root("root", 0);
  const Identity young = Root("root", 1);
  const CertSpec spec = Spec(CertSpec::Authority("root"), Validity::Between("2000-01-01", "2070-01-01"));
  const Cert oldByYoung = Cert::Issue(spec, SharedKey(0), young);
  const Cert youngByOld = Cert::Issue(spec, SharedKey(1), old);
  const std::vector<Cert> all = {oldByYoung, youngByOld, old.certificate, young.certificate};
  EXPECT_EQ(Verify(Leaf(old), all).chain, (Names{"leaf", "root"}));
  EXPECT_EQ(Verify(Leaf(young), all).chain, (Names{"leaf", "root"}));
  EXPECT_NE(Verify(Leaf(old), {oldByYoung, youngByOld}).code, 0);
}

TEST(VerifyChain, FollowsALongChain) {
  std::vector<Identity> authorities = {Root("authority 0", 0)};
  std::vector<Cert> store = {authorities.front().certificate};
  for (std::size_t i = 1; i < 12; ++i) {
    authorities.push_back(Authority("authority " + std::to_string(i), i % 3, authorities.back()));
    store.push_back(authorities.back().certificate);
  }
  EXPECT_EQ(Verify(Leaf(authorities.back()), store).chain.size(), 13U);
}

TEST(VerifyChain, LeavesTheStoreAsItWas) {
  const Hierarchy& sample = Sample();
  CertStore store;
  Fill(store, {sample.root.certificate, sample.middle.certificate});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ToCertificate(sample.leaf)
                  .VerifyChain(store, nullptr, /*checkRevocation=*/false, /*allowPartialChain=*/false, kNow,
                               /*ignoreTime=*/false)
                  .code,
              0);
    EXPECT_EQ(sk_X509_num(store.Get0()), 2);
  }
}

}  // namespace

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>
#include <utility>

#include "security/certificate.h"
#include "security/certstore.h"
#include "tests/security/testpki.h"

namespace {

using namespace SecurityTest;
using OruGuiBase::DateTime;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::CertVerifyResult;
using Chain = OruGuiBase::PtrContainerQueue<Certificate>;

const Validity kLong = Validity::Between("2000-01-01", "2060-01-01");
const DateTime kNow = At(2026, 6, 1, 12);

CertSpec Spec(CertSpec spec, Validity validity = kLong) {
  spec.validity = validity;
  return spec;
}

Identity Root(const std::string& name, std::size_t key) {
  return Identity::MakeRoot(Spec(CertSpec::Authority(name)), SharedKey(key));
}

Identity Authority(const std::string& name, std::size_t key, const Identity& issuer) {
  return Identity::MakeIssued(Spec(CertSpec::Authority(name)), issuer, SharedKey(key));
}

Cert Leaf(const Identity& issuer, CertSpec spec = CertSpec::EndEntity("leaf"), Validity validity = kLong) {
  return Cert::Issue(Spec(std::move(spec), validity), SharedKey(3), issuer);
}

// root, below it the intermediate authority, below that the leaf.
struct Hierarchy {
  Identity root = Root("root", 0);
  Identity middle = Authority("middle", 1, root);
  Cert leaf = Leaf(middle);
};

const Hierarchy& Sample() {
  static const Hierarchy hierarchy;
  return hierarchy;
}

CertStore& Fill(CertStore& store, const std::vector<Cert>& certificates) {
  for (const Cert& certificate : certificates) EXPECT_TRUE(store.Add(ToCertificate(certificate)));
  return store;
}

// What a test asks for, in names.
struct Options {
  bool checkRevocation = false;
  bool allowPartialChain = false;
  DateTime time = kNow;
  bool ignoreTime = false;
};

struct Outcome {
  int code = 0;
  std::string text;
  std::vector<std::string> chain;
};

std::vector<std::string> SubjectsOf(const Chain& chain) {
  std::vector<std::string> subjects;
  for (const auto* node = chain.GetFirst(); node != nullptr; node = node->next) {
    OruGuiBase::AnsiStr subject;
    EXPECT_TRUE(node->element->GetSubject(subject));
    subjects.push_back(ToString(subject).substr(3));
  }
  return subjects;
}

Outcome Verify(const Cert& leaf, const std::vector<Cert>& trusted, const Options& options = {}) {
  CertStore store;
  Fill(store, trusted);
  Chain chain;
  chain.Append(new Certificate());
  LeaveStaleReason();
  const CertVerifyResult result = ToCertificate(leaf).VerifyChain(
      store, &chain, options.checkRevocation, options.allowPartialChain, options.time, options.ignoreTime);
  EXPECT_TRUE(IsQueueEmpty());
  EXPECT_EQ(OruGuiBase::GetLastError() == 0, result.code == 0);
  EXPECT_EQ(chain.IsEmpty(), result.code != 0);
  EXPECT_TRUE(result.code == 0 || GetReason() == ToString(result.GetResultString())) << GetReason();
  return {result.code, ToString(result.GetResultString()), SubjectsOf(chain)};
}

using Names = std::vector<std::string>;

TEST(VerifyChain, BuildsTheChainFromTheLeafToTheRoot) {
  const Hierarchy& sample = Sample();
  const Outcome outcome = Verify(sample.leaf, {sample.root.certificate, sample.middle.certificate});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.text, "ok");
  EXPECT_EQ(outcome.chain, (Names{"leaf", "middle", "root"}));
}

TEST(VerifyChain, DoesNotDependOnTheOrderOfTheStore) {
  const Hierarchy& sample = Sample();
  const Outcome outcome = Verify(sample.leaf, {sample.middle.certificate, sample.root.certificate});
  EXPECT_EQ(outcome.chain, (Names{"leaf", "middle", "root"}));
}

TEST(VerifyChain, ChainHoldsTheCertificatesThemselves) {
  const Hierarchy& sample = Sample();
  CertStore store;
  Fill(store, {sample.root.certificate, sample.middle.certificate});
  Chain chain;
  ASSERT_EQ(ToCertificate(sample.leaf).VerifyChain(store, &chain, false, false, kNow, false).code, 0);
  ASSERT_EQ(chain.GetCount(), 3U);
  EXPECT_EQ(Certificate::Compare(*chain.Get(0), ToCertificate(sample.leaf)), 0);
  EXPECT_EQ(Certificate::Compare(*chain.Get(1), ToCertificate(sample.middle.certificate)), 0);
  EXPECT_TRUE(store.Contains(*chain.Get(2)));
}

TEST(VerifyChain, ChainOutlivesStoreAndLeaf) {
  const Hierarchy& sample = Sample();
  Chain chain;
  {
    CertStore store;
    Fill(store, {sample.root.certificate, sample.middle.certificate});
    ASSERT_EQ(ToCertificate(sample.leaf).VerifyChain(store, &chain, false, false, kNow, false).code, 0);
  }
  EXPECT_EQ(SubjectsOf(chain), (Names{"leaf", "middle", "root"}));
}

TEST(VerifyChain, TakesANullChain) {
  const Hierarchy& sample = Sample();
  CertStore store;
  Fill(store, {sample.root.certificate, sample.middle.certificate});
  EXPECT_EQ(ToCertificate(sample.leaf).VerifyChain(store, nullptr, false, false, kNow, false).code, 0);
}

TEST(VerifyChain, FailsForAnEmptyCertificate) {
  Chain chain;
  chain.Append(new Certificate());
  LeaveStaleReason();
  const CertVerifyResult result = Certificate().VerifyChain(CertStore(), &chain, false, false, kNow, false);
  EXPECT_NE(result.code, 0);
  EXPECT_EQ(ToString(result.GetResultString()), "The certificate is empty");
  EXPECT_EQ(GetReason(), "The certificate is empty");
  EXPECT_TRUE(chain.IsEmpty());
}

TEST(VerifyChain, FailsForAnEmptyStore) {
  const Outcome outcome = Verify(Sample().leaf, {});
  EXPECT_EQ(outcome.code, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
  EXPECT_EQ(outcome.text, "unable to get local issuer certificate");
}

TEST(VerifyChain, FailsWhenTheIntermediateIsMissing) {
  EXPECT_EQ(Verify(Sample().leaf, {Sample().root.certificate}).code,
            X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
}

TEST(VerifyChain, FailsWhenTheRootIsMissing) {
  EXPECT_EQ(Verify(Sample().leaf, {Sample().middle.certificate}).code, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT);
}

TEST(VerifyChain, FailsUnderAnotherRootOfTheSameName) {
  const Identity other = Root("root", 2);
  EXPECT_NE(Verify(Sample().leaf, {other.certificate, Sample().middle.certificate}).code, 0);
}

// Purpose, names and usages of keys

TEST(VerifyChain, AsksForNoPurpose) {
  for (const char* usage : {"serverAuth", "critical,emailProtection", "critical,timeStamping", "1.2.3.4"}) {
    CertSpec spec = CertSpec::EndEntity("leaf");
    spec.extendedKeyUsage = usage;
    spec.keyUsage = "";
    EXPECT_EQ(Verify(Leaf(Sample().root, spec), {Sample().root.certificate}).code, 0) << usage;
  }
}

TEST(VerifyChain, AsksForNoKeyUsageOfTheLeaf) {
  CertSpec spec = CertSpec::EndEntity("leaf");
  spec.keyUsage = "critical,cRLSign";
  EXPECT_EQ(Verify(Leaf(Sample().root, spec), {Sample().root.certificate}).code, 0);
}

TEST(VerifyChain, FailsForACriticalExtensionThatNobodyKnows) {
  CertSpec spec = CertSpec::EndEntity("leaf");
  spec.extensions = {{"1.2.3.4", "critical,ASN1:UTF8String:x"}};
  EXPECT_EQ(Verify(Leaf(Sample().root, spec), {Sample().root.certificate}).code,
            X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION);
}

TEST(VerifyChain, FailsForAnIssuerThatIsNoAuthority) {
  CertSpec spec = Spec(CertSpec::EndEntity("no authority"));
  spec.keyUsage = "";
  const Identity issuer = Identity::MakeIssued(spec, Sample().root, SharedKey(1));
  EXPECT_EQ(Verify(Leaf(issuer), {Sample().root.certificate, issuer.certificate}).code,
            X509_V_ERR_INVALID_CA);
}

TEST(VerifyChain, FailsForAnAuthorityWhoseKeyMayNotSignCertificates) {
  CertSpec spec = Spec(CertSpec::Authority("middle"));
  spec.keyUsage = "critical,digitalSignature";
  const Identity issuer = Identity::MakeIssued(spec, Sample().root, SharedKey(1));
  EXPECT_NE(Verify(Leaf(issuer), {Sample().root.certificate, issuer.certificate}).code, 0);
}

TEST(VerifyChain, KeepsToThePathLength) {
  const Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root", 0)), SharedKey(0));
  const Identity middle = Authority("middle", 1, root);
  EXPECT_EQ(Verify(Leaf(root), {root.certificate}).code, 0);
  EXPECT_EQ(Verify(Leaf(middle), {root.certificate, middle.certificate}).code,
            X509_V_ERR_PATH_LENGTH_EXCEEDED);
}

TEST(VerifyChain, KeepsToNameConstraints) {
  CertSpec spec = Spec(CertSpec::Authority("middle"));
  spec.extensions = {{"nameConstraints", "critical,permitted;email:example.org"}};
  const Identity middle = Identity::MakeIssued(spec, Sample().root, SharedKey(1));
  CertSpec leaf = CertSpec::EndEntity("leaf");
  leaf.extensions = {{"subjectAltName", "email:a@example.com"}};
  EXPECT_EQ(Verify(Leaf(middle, leaf), {Sample().root.certificate, middle.certificate}).code,
            X509_V_ERR_PERMITTED_VIOLATION);
}

// Signatures

// The certificate with the last byte of its signature changed.
Cert Spoilt(const Cert& certificate) {
  std::string der = certificate.ToDER();
  der.back() = static_cast<char>(der.back() ^ 1);
  return Cert::FromPEM(MakePEM("CERTIFICATE", der));
}

TEST(VerifyChain, FailsForAWrongSignatureOfTheLeaf) {
  const Hierarchy& sample = Sample();
  const Outcome outcome = Verify(Spoilt(sample.leaf), {sample.root.certificate, sample.middle.certificate});
  EXPECT_EQ(outcome.code, X509_V_ERR_CERT_SIGNATURE_FAILURE);
  EXPECT_EQ(outcome.text, "certificate signature failure");
}

TEST(VerifyChain, FailsForAWrongSignatureOfTheIntermediate) {
  const Hierarchy& sample = Sample();
  EXPECT_EQ(Verify(sample.leaf, {sample.root.certificate, Spoilt(sample.middle.certificate)}).code,
            X509_V_ERR_CERT_SIGNATURE_FAILURE);
}

TEST(VerifyChain, NoByteOfTheLeafCanChange) {
  const Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root")), SharedECKey());
  const std::string der = Cert::Issue(Spec(CertSpec::EndEntity("leaf")), SharedECKey(), root).ToDER();
  CertStore store;
  Fill(store, {root.certificate});
  for (std::size_t i = 0; i < der.size(); ++i) {
    std::string changed = der;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    Certificate leaf;
    if (!leaf.Load(ToText(MakePEM("CERTIFICATE", changed)), OruOssSec::ASN1::Encoding::Text)) continue;
    EXPECT_NE(leaf.VerifyChain(store, nullptr, false, false, kNow, false).code, 0) << i;
  }
}

TEST(VerifyChain, FailsWhenTheIssuerHasTheNameButNotTheKey) {
  CertSpec spec = Spec(CertSpec::Authority("root"));
  spec.hasSubjectKeyId = false;
  const Identity real = Identity::MakeRoot(spec, SharedKey(0));
  const Identity other = Identity::MakeRoot(spec, SharedKey(2));
  EXPECT_EQ(Verify(Leaf(real), {other.certificate}).code, X509_V_ERR_CERT_SIGNATURE_FAILURE);
}

// Time

const Validity kYear = Validity::Between("2025-01-01", "2025-12-31T23:59:59");

TEST(VerifyChain, LooksAtTheTimeThatItIsGiven) {
  const Cert leaf = Leaf(Sample().root, CertSpec::EndEntity("leaf"), kYear);
  const struct {
    const char* why;
    DateTime time;
    int code;
  } rows[] = {
      {"in the middle", At(2025, 7, 1), 0},
      {"the first second", At(2025, 1, 1), 0},
      {"a second before the end", At(2025, 12, 31, 23, 59, 58), 0},
      {"a second before the beginning", At(2024, 12, 31, 23, 59, 59), X509_V_ERR_CERT_NOT_YET_VALID},
      {"a second after the end", At(2026, 1, 1), X509_V_ERR_CERT_HAS_EXPIRED},
      {"the epoch of the system's clock", At(1970, 1, 1), X509_V_ERR_CERT_NOT_YET_VALID},
      {"long ago", At(1066, 10, 14), X509_V_ERR_CERT_NOT_YET_VALID},
      {"far ahead", At(2999, 1, 1), X509_V_ERR_CERT_HAS_EXPIRED},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Verify(leaf, {Sample().root.certificate}, {.time = row.time}).code, row.code) << row.why;
  }
}

TEST(VerifyChain, TakesTheEpochAsATimeLikeAnyOther) {
  const Validity old = Validity::Between("1960-01-01", "1980-01-01");
  const Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root"), old), SharedKey(0));
  EXPECT_EQ(Verify(root.certificate, {root.certificate}, {.time = At(1970, 1, 1)}).code, 0);
  EXPECT_EQ(Verify(root.certificate, {root.certificate}, {.time = At(1965, 1, 1)}).code, 0);
}

TEST(VerifyChain, FailsForATimeThatIsUnset) {
  const Hierarchy& sample = Sample();
  const Outcome outcome =
      Verify(sample.leaf, {sample.root.certificate, sample.middle.certificate}, {.time = DateTime()});
  EXPECT_EQ(outcome.code, X509_V_ERR_CERT_NOT_YET_VALID);
  EXPECT_EQ(outcome.text, "certificate is not yet valid");
}

TEST(VerifyChain, FailsForATimeThatIsNoDate) {
  const Hierarchy& sample = Sample();
  for (const DateTime& time : {At(2026, 0, 1), At(2026, 13, 1), At(2026, 2, 30), At(2026, 1, 1, 24),
                               At(-2026, 1, 1), At(2026, 1, 1, 0, -1), At(0, 6, 1)}) {
    EXPECT_EQ(Verify(sample.leaf, {sample.root.certificate, sample.middle.certificate}, {.time = time}).code,
              X509_V_ERR_CERT_NOT_YET_VALID)
        << time.year << "-" << time.month;
  }
}

TEST(VerifyChain, FailsWhenTheIntermediateHasExpired) {
  const Identity middle =
      Identity::MakeIssued(Spec(CertSpec::Authority("middle"), kYear), Sample().root, SharedKey(1));
  const std::vector<Cert> trusted = {Sample().root.certificate, middle.certificate};
  EXPECT_EQ(Verify(Leaf(middle), trusted, {.time = At(2025, 6, 1)}).code, 0);
  EXPECT_EQ(Verify(Leaf(middle), trusted, {.time = kNow}).code, X509_V_ERR_CERT_HAS_EXPIRED);
}

TEST(VerifyChain, FailsWhenTheRootHasExpired) {
  const Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root"), kYear), SharedKey(0));
  EXPECT_EQ(Verify(Leaf(root), {root.certificate}).code, X509_V_ERR_CERT_HAS_EXPIRED);
}

TEST(VerifyChain, IgnoresTimeWhenItIsTold) {
  const Cert leaf = Leaf(Sample().root, CertSpec::EndEntity("leaf"), kYear);
  for (const DateTime& time : {kNow, At(1990, 1, 1), DateTime(), At(2026, 13, 1)}) {
    EXPECT_EQ(Verify(leaf, {Sample().root.certificate}, {.time = time, .ignoreTime = true}).code, 0);
  }
}

TEST(VerifyChain, IgnoringTimeStillChecksSignatures) {
  EXPECT_EQ(Verify(Spoilt(Leaf(Sample().root)), {Sample().root.certificate}, {.ignoreTime = true}).code,
            X509_V_ERR_CERT_SIGNATURE_FAILURE);
}

// Self-signed certificates and partial chains

TEST(VerifyChain, SelfSignedCertificateOfTheStoreIsAChainOfOne) {
  const Cert self = Cert::SelfSign(Spec(CertSpec::EndEntity("self")), SharedKey(3));
  for (const bool partial : {false, true}) {
    const Outcome outcome = Verify(self, {self}, {.allowPartialChain = partial});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.chain, Names{"self"});
  }
}

TEST(VerifyChain, SelfSignedCertificateOutsideTheStoreFails) {
  const Cert self = Cert::SelfSign(Spec(CertSpec::EndEntity("self")), SharedKey(3));
  for (const bool partial : {false, true}) {
    EXPECT_EQ(Verify(self, {Sample().root.certificate}, {.allowPartialChain = partial}).code,
              X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
  }
}

TEST(VerifyChain, SelfSignedMimicOfARootFails) {
  const Identity mimic = Root("root", 2);
  for (const bool partial : {false, true}) {
    EXPECT_NE(Verify(mimic.certificate, {Sample().root.certificate}, {.allowPartialChain = partial}).code, 0);
  }
}

TEST(VerifyChain, PartialChainEndsInAnyCertificateOfTheStore) {
  const Hierarchy& sample = Sample();
  const Outcome outcome = Verify(sample.leaf, {sample.middle.certificate}, {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.chain, (Names{"leaf", "middle"}));
}

// The shape in which a room key is proven: the store holds the lists and, added last, the certificate that
// signed the room key, which is no root.
TEST(VerifyChain, PartialChainHoldsLeafAndIssuerFirstWhateverElseTheStoreHolds) {
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

TEST(VerifyChain, PartialChainOfALeafInTheStoreStillNamesItsIssuer) {
  const Hierarchy& sample = Sample();
  const Outcome outcome =
      Verify(sample.leaf, {sample.leaf, sample.middle.certificate}, {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.chain, (Names{"leaf", "middle"}));
}

TEST(VerifyChain, PartialChainOfALeafInTheStoreWithoutItsIssuerIsTheLeafAlone) {
  const Outcome outcome = Verify(Sample().leaf, {Sample().leaf}, {.allowPartialChain = true});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.chain, Names{"leaf"});
}

TEST(VerifyChain, LeafInTheStoreIsNoRootWithoutPartialChains) {
  EXPECT_NE(Verify(Sample().leaf, {Sample().leaf}).code, 0);
  EXPECT_NE(Verify(Sample().leaf, {Sample().leaf, Sample().middle.certificate}).code, 0);
}

TEST(VerifyChain, PartialChainStillChecksTimeAndSignature) {
  const Hierarchy& sample = Sample();
  const std::vector<Cert> trusted = {sample.middle.certificate};
  EXPECT_EQ(Verify(Spoilt(sample.leaf), trusted, {.allowPartialChain = true}).code,
            X509_V_ERR_CERT_SIGNATURE_FAILURE);
  EXPECT_EQ(Verify(sample.leaf, trusted, {.allowPartialChain = true, .time = At(1999, 1, 1)}).code,
            X509_V_ERR_CERT_NOT_YET_VALID);
}

TEST(VerifyChain, PartialChainFailsUnderAnIssuerThatIsNoAuthority) {
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
    ASSERT_EQ(ToCertificate(Leaf(first)).VerifyChain(store, &chain, false, false, kNow, false).code, 0);
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

// Each of the two keys of a root has certified the other, so that issuers lead round in a circle.
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

TEST(VerifyChain, PassesThroughALongChain) {
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
    EXPECT_EQ(ToCertificate(sample.leaf).VerifyChain(store, nullptr, false, false, kNow, false).code, 0);
    EXPECT_EQ(sk_X509_num(store.Get0()), 2);
  }
}

}  // namespace

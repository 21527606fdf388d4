#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include "security/certificate.h"
#include "tests/security/x509/chain_fixture.h"

namespace {

using namespace SecurityTest;
using OruGuiBase::DateTime;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::CertVerifyResult;

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

TEST(VerifyChain, ReturnsTheCertificatesThemselves) {
  const Hierarchy& sample = Sample();
  CertStore store;
  Fill(store, {sample.root.certificate, sample.middle.certificate});
  Chain chain;
  ASSERT_EQ(ToCertificate(sample.leaf)
                .VerifyChain(store, &chain, /*checkRevocation=*/false, /*allowPartialChain=*/false, kNow,
                             /*ignoreTime=*/false)
                .code,
            0);
  ASSERT_EQ(chain.GetCount(), 3U);
  EXPECT_EQ(Certificate::Compare(*chain.Get(0), ToCertificate(sample.leaf)), 0);
  EXPECT_EQ(Certificate::Compare(*chain.Get(1), ToCertificate(sample.middle.certificate)), 0);
  EXPECT_TRUE(store.Contains(*chain.Get(2)));
}

TEST(VerifyChain, ReturnsAChainThatOutlivesStoreAndLeaf) {
  const Hierarchy& sample = Sample();
  Chain chain;
  {
    CertStore store;
    Fill(store, {sample.root.certificate, sample.middle.certificate});
    ASSERT_EQ(ToCertificate(sample.leaf)
                  .VerifyChain(store, &chain, /*checkRevocation=*/false, /*allowPartialChain=*/false, kNow,
                               /*ignoreTime=*/false)
                  .code,
              0);
  }
  EXPECT_EQ(SubjectsOf(chain), (Names{"leaf", "middle", "root"}));
}

TEST(VerifyChain, AcceptsANullChain) {
  const Hierarchy& sample = Sample();
  CertStore store;
  Fill(store, {sample.root.certificate, sample.middle.certificate});
  EXPECT_EQ(ToCertificate(sample.leaf)
                .VerifyChain(store, nullptr, /*checkRevocation=*/false, /*allowPartialChain=*/false, kNow,
                             /*ignoreTime=*/false)
                .code,
            0);
}

TEST(VerifyChain, FailsForAnEmptyCertificate) {
  Chain chain;
  chain.Append(new Certificate());
  LeaveStaleReason();
  const CertVerifyResult result =
      Certificate().VerifyChain(CertStore(), &chain, /*checkRevocation=*/false, /*allowPartialChain=*/false,
                                kNow, /*ignoreTime=*/false);
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

TEST(VerifyChain, DemandsNoPurpose) {
  for (const char* usage : {"serverAuth", "critical,emailProtection", "critical,timeStamping", "1.2.3.4"}) {
    CertSpec spec = CertSpec::EndEntity("leaf");
    spec.extendedKeyUsage = usage;
    spec.keyUsage = "";
    EXPECT_EQ(Verify(Leaf(Sample().root, spec), {Sample().root.certificate}).code, 0) << usage;
  }
}

TEST(VerifyChain, DemandsNoKeyUsageOfTheLeaf) {
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

TEST(VerifyChain, EnforcesThePathLength) {
  const Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root", 0)), SharedKey(0));
  const Identity middle = Authority("middle", 1, root);
  EXPECT_EQ(Verify(Leaf(root), {root.certificate}).code, 0);
  EXPECT_EQ(Verify(Leaf(middle), {root.certificate, middle.certificate}).code,
            X509_V_ERR_PATH_LENGTH_EXCEEDED);
}

TEST(VerifyChain, EnforcesNameConstraints) {
  CertSpec spec = Spec(CertSpec::Authority("middle"));
  spec.extensions = {{"nameConstraints", "critical,permitted;email:example.org"}};
  const Identity middle = Identity::MakeIssued(spec, Sample().root, SharedKey(1));
  CertSpec leaf = CertSpec::EndEntity("leaf");
  leaf.extensions = {{"subjectAltName", "email:a@example.com"}};
  EXPECT_EQ(Verify(Leaf(middle, leaf), {Sample().root.certificate, middle.certificate}).code,
            X509_V_ERR_PERMITTED_VIOLATION);
}

// Signatures

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

TEST(VerifyChain, RefusesEveryChangedByteOfTheLeaf) {
  const Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root")), SharedECKey());
  const std::string der = Cert::Issue(Spec(CertSpec::EndEntity("leaf")), SharedECKey(), root).ToDER();
  CertStore store;
  Fill(store, {root.certificate});
  for (std::size_t i = 0; i < der.size(); ++i) {
    std::string changed = der;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    Certificate leaf;
    if (!leaf.Load(ToText(MakePEM("CERTIFICATE", changed)), OruOssSec::ASN1::Encoding::Text)) continue;
    EXPECT_NE(leaf.VerifyChain(store, nullptr, /*checkRevocation=*/false, /*allowPartialChain=*/false, kNow,
                               /*ignoreTime=*/false)
                  .code,
              0)
        << i;
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

TEST(VerifyChain, ChecksAtTheGivenTime) {
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

TEST(VerifyChain, AcceptsTheEpochAsATime) {
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

TEST(VerifyChain, IgnoresTheTimeWhenAsked) {
  const Cert leaf = Leaf(Sample().root, CertSpec::EndEntity("leaf"), kYear);
  for (const DateTime& time : {kNow, At(1990, 1, 1), DateTime(), At(2026, 13, 1)}) {
    EXPECT_EQ(Verify(leaf, {Sample().root.certificate}, {.time = time, .ignoreTime = true}).code, 0);
  }
}

TEST(VerifyChain, ChecksSignaturesWhenIgnoringTheTime) {
  EXPECT_EQ(Verify(Spoilt(Leaf(Sample().root)), {Sample().root.certificate}, {.ignoreTime = true}).code,
            X509_V_ERR_CERT_SIGNATURE_FAILURE);
}

}  // namespace

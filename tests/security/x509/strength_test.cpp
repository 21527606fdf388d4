// What is too weak for a chain.
#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include "tests/security/x509/chain_fixture.h"

namespace {

using namespace SecurityTest;

const char* const kShort = "A certificate's RSA key has fewer than 2048 bits";
const char* const kSHA1 = "A certificate is signed with SHA-1";
const char* const kMD5 = "A certificate is signed with MD5";

const KeyPair& ShortKey() {
  static const KeyPair key = KeyPair::MakeRSA(1024);
  return key;
}

// A chain of three whose certificates are signed with these digests and whose keys are these.
struct Three {
  KeyPair rootKey = SharedKey(0);
  KeyPair middleKey = SharedKey(1);
  KeyPair leafKey = SharedKey(3);
  const char* rootDigest = "SHA256";
  const char* middleDigest = "SHA256";
  const char* leafDigest = "SHA256";

  static CertSpec With(CertSpec spec, const char* digest) {
    spec.digest = digest;
    return Spec(std::move(spec));
  }
  Outcome Judge(bool allowPartialChain = false) const {
    const Identity root = Identity::MakeRoot(With(CertSpec::Authority("root"), rootDigest), rootKey);
    const Identity middle =
        Identity::MakeIssued(With(CertSpec::Authority("middle"), middleDigest), root, middleKey);
    const Cert leaf = Cert::Issue(With(CertSpec::EndEntity("leaf"), leafDigest), leafKey, middle);
    return Verify(leaf, {root.certificate, middle.certificate}, {.allowPartialChain = allowPartialChain});
  }
};

TEST(Strength, AcceptsAChainOfStrongCertificates) {
  EXPECT_EQ(Three().Judge().text, "ok");
  EXPECT_EQ(Three({.rootKey = SharedECKey(), .leafDigest = "SHA3-256"}).Judge().text, "ok");
  EXPECT_EQ(Three({.rootDigest = "SHA512", .middleDigest = "SHA384", .leafDigest = "SHA224"}).Judge().text,
            "ok");
}

TEST(Strength, RefusesAShortRSAKeyAnywhereInTheChain) {
  const Three leaf{.leafKey = ShortKey()};
  EXPECT_EQ(leaf.Judge().text, kShort);
  EXPECT_EQ(leaf.Judge().code, X509_V_ERR_EE_KEY_TOO_SMALL);
  const Three middle{.middleKey = ShortKey()};
  EXPECT_EQ(middle.Judge().text, kShort);
  EXPECT_EQ(middle.Judge(true).text, kShort);
  EXPECT_EQ(middle.Judge().code, X509_V_ERR_CA_KEY_TOO_SMALL);
  EXPECT_EQ(Three({.rootKey = ShortKey()}).Judge().text, kShort);
  EXPECT_EQ(Three({.leafKey = KeyPair::MakeRSA(2040)}).Judge().text, kShort);
}

TEST(Strength, RefusesABrokenAlgorithm) {
  EXPECT_EQ(Three({.leafDigest = "SHA1"}).Judge().text, kSHA1);
  EXPECT_EQ(Three({.middleDigest = "SHA1"}).Judge().text, kSHA1);
  EXPECT_EQ(Three({.leafDigest = "MD5"}).Judge().text, kMD5);
  EXPECT_EQ(Three({.middleDigest = "MD5"}).Judge().text, kMD5);
  EXPECT_EQ(Three({.leafDigest = "RIPEMD160"}).Judge().text, "A certificate is signed with a weak digest");
  EXPECT_EQ(Three({.leafDigest = "SHA1"}).Judge().code, X509_V_ERR_CA_MD_TOO_WEAK);
}

// The list already says that this certificate is trusted; its signature adds nothing.
TEST(Strength, IgnoresTheSignatureOfTheTrustedEnd) {
  EXPECT_EQ(Three({.rootDigest = "SHA1"}).Judge().text, "ok");
  EXPECT_EQ(Three({.rootDigest = "MD5"}).Judge().text, "ok");
  EXPECT_EQ(Three({.middleDigest = "SHA1"}).Judge(true).text, "ok");
  CertSpec spec = Three::With(CertSpec::EndEntity("self"), "SHA1");
  const Cert self = Cert::SelfSign(spec, SharedKey(3));
  EXPECT_EQ(Verify(self, {self}).text, "ok");
}

// The weak certificate has the same name and key and ends later.
TEST(Strength, SkipsAWeakRenewal) {
  const Hierarchy& sample = Sample();
  CertSpec spec = Three::With(CertSpec::Authority("middle"), "SHA1");
  spec.validity = Validity::Between("2000-01-01", "2090-01-01");
  const Cert weak = Cert::Issue(spec, SharedKey(1), sample.root);
  EXPECT_EQ(Verify(sample.leaf, {sample.root.certificate, weak}).text, kSHA1);
  EXPECT_EQ(Verify(sample.leaf, {sample.root.certificate, weak, sample.middle.certificate}).text, "ok");
}

TEST(Strength, ReportsAWrongSignatureBeforeAWeakOne) {
  const Identity root = Root("root", 0);
  const Cert leaf = Cert::Issue(Three::With(CertSpec::EndEntity("leaf"), "SHA1"), SharedKey(3), root);
  EXPECT_EQ(Verify(Spoilt(leaf), {root.certificate}).text, "certificate signature failure");
}

}  // namespace

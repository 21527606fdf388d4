// What the search for a chain does when several certificates of one name fit.
#include <gtest/gtest.h>
#include <memory>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/x509_vfy.h>

#include "security/certificate.h"
#include "tests/security/x509/chain_fixture.h"

namespace {

using namespace SecurityTest;
using OruOssSec::Certificate;
using OruOssSec::CertStore;

// A system in which every authority has a key on a curve: thousands of certificates are made in no time.
struct World {
  KeyPair keys[4] = {KeyPair::MakeEC(), KeyPair::MakeEC(), KeyPair::MakeEC(), KeyPair::MakeEC()};
  Identity root = Identity::MakeRoot(Spec(CertSpec::Authority("root")), keys[0]);
  /// Its certificate is in no store.
  Identity stranger = Identity::MakeRoot(Spec(CertSpec::Authority("stranger")), KeyPair::MakeEC());
  Identity middle = Identity::MakeIssued(Spec(CertSpec::Authority("middle")), root, keys[1]);
  Identity issuing = Identity::MakeIssued(Spec(CertSpec::Authority("issuing")), middle, keys[2]);
  Cert leaf = Cert::Issue(Spec(CertSpec::EndEntity("leaf")), keys[3], issuing);
};

const World& Get() {
  static const World world;
  return world;
}

const Validity kLonger = Validity::Between("2000-01-01", "2090-01-01");

// Certificates of one name and key that end later than those of World.
std::vector<Cert> Decoys(const char* name, const KeyPair& key, const Identity& issuer, int count) {
  std::vector<Cert> decoys;
  for (int i = 0; i < count; ++i) {
    decoys.push_back(Cert::Issue(Spec(CertSpec::Authority(name), kLonger), key, issuer));
  }
  return decoys;
}

void Append(std::vector<Cert>& target, const std::vector<Cert>& more) {
  target.insert(target.end(), more.begin(), more.end());
}

std::vector<Cert> Good() {
  return {Get().root.certificate, Get().middle.certificate, Get().issuing.certificate};
}

const Names kGoodChain = {"leaf", "issuing", "middle", "root"};

// The second certificate of the chain that is found when these are preferred.
Certificate FindIssuer(const std::vector<Cert>& trusted, const std::vector<Cert>& preferred,
                       bool allowPartialChain = false) {
  CertStore store;
  CertStore first;
  Fill(store, trusted);
  Fill(first, preferred);
  Chain chain;
  EXPECT_EQ(ToCertificate(Get().leaf)
                .VerifyChain(store, first, &chain, /*checkRevocation=*/false, allowPartialChain, kNow,
                             /*ignoreTime=*/false)
                .code,
            0);
  return chain.GetCount() > 1 ? *chain.Get(1) : Certificate();
}

bool IsSame(const Certificate& a, const Cert& b) {
  return Certificate::Compare(a, ToCertificate(b)) == 0;
}

TEST(ChainSearch, AvoidsACrossCertificateWithoutItsRoot) {
  for (const char* name : {"issuing", "middle"}) {
    const KeyPair& key = Get().keys[name == std::string("issuing") ? 2 : 1];
    std::vector<Cert> trusted = Decoys(name, key, Get().stranger, 1);
    Append(trusted, Good());
    EXPECT_EQ(Verify(Get().leaf, trusted).chain, kGoodChain) << name;
  }
}

TEST(ChainSearch, TriesAnotherPathWhenTheFirstIsTooLong) {
  CertSpec spec = Spec(CertSpec::Authority("middle", 0), kLonger);
  std::vector<Cert> trusted = {Cert::Issue(spec, Get().keys[1], Get().root)};
  EXPECT_EQ(Verify(Get().leaf, {trusted[0], Get().root.certificate, Get().issuing.certificate}).code,
            X509_V_ERR_PATH_LENGTH_EXCEEDED);
  Append(trusted, Good());
  EXPECT_EQ(Verify(Get().leaf, trusted).chain, kGoodChain);
}

TEST(ChainSearch, SkipsIssuersThatMayNotIssue) {
  CertSpec noAuthority = Spec(CertSpec::EndEntity("issuing"), kLonger);
  CertSpec expired = Spec(CertSpec::Authority("issuing"), kYear);
  CertSpec unknown = Spec(CertSpec::Authority("issuing"), kLonger);
  unknown.extensions = {{"1.2.3.4", "critical,ASN1:UTF8String:x"}};
  for (const CertSpec& spec : {noAuthority, expired, unknown}) {
    std::vector<Cert> trusted = {Cert::Issue(spec, Get().keys[2], Get().middle)};
    Append(trusted, Good());
    EXPECT_EQ(Verify(Get().leaf, trusted).chain, kGoodChain);
  }
}

TEST(ChainSearch, TakesThePreferredIssuerThoughAnotherEndsLater) {
  const Cert later = Decoys("issuing", Get().keys[2], Get().middle, 1)[0];
  std::vector<Cert> trusted = Good();
  trusted.push_back(later);
  for (const bool partial : {false, true}) {
    EXPECT_TRUE(IsSame(FindIssuer(trusted, {}, partial), later));
    EXPECT_TRUE(IsSame(FindIssuer(trusted, {Get().issuing.certificate}, partial), Get().issuing.certificate));
    EXPECT_TRUE(IsSame(FindIssuer(trusted, {later}, partial), later));
  }
}

// A root that was renewed with its key and names the previous certificate as its issuer is below that one.
TEST(ChainSearch, TakesThePreferredIssuerBelowAnotherOfItsNameAndKey) {
  const Identity before = Identity::MakeRoot(Spec(CertSpec::Authority("issuing")), Get().keys[2]);
  CertSpec spec = Spec(CertSpec::Authority("issuing"));
  spec.hasAuthorityKeyId = false;
  spec.extensions = {{"authorityKeyIdentifier", "issuer:always"}};
  const Cert renewed = Cert::Issue(spec, Get().keys[2], before);
  ASSERT_NE(X509_self_signed(renewed.Get0(), 0), 1);
  EXPECT_TRUE(IsSame(FindIssuer({before.certificate, renewed}, {renewed}), renewed));
  EXPECT_TRUE(IsSame(FindIssuer({before.certificate, renewed}, {}), before.certificate));
}

TEST(ChainSearch, TakesAnotherIssuerWhenThePreferredLeadsNowhere) {
  const Cert crossed = Decoys("issuing", Get().keys[2], Get().stranger, 1)[0];
  std::vector<Cert> trusted = Good();
  trusted.push_back(crossed);
  EXPECT_TRUE(IsSame(FindIssuer(trusted, {crossed}), Get().issuing.certificate));
}

TEST(ChainSearch, DoesNotTrustAPreferredCertificate) {
  const Cert later = Decoys("issuing", Get().keys[2], Get().middle, 1)[0];
  EXPECT_TRUE(IsSame(FindIssuer(Good(), {later}), Get().issuing.certificate));
}

TEST(ChainSearch, NamesWhatIsWrongWithTheOnlySoundPath) {
  std::vector<Cert> trusted = {Get().middle.certificate, Get().issuing.certificate};
  EXPECT_EQ(Verify(Get().leaf, trusted).text, "unable to get issuer certificate");
  trusted.push_back(Identity::MakeRoot(Spec(CertSpec::Authority("root"), kYear), Get().keys[0]).certificate);
  EXPECT_EQ(Verify(Get().leaf, trusted).text, "certificate has expired");
}

// ---- Stores made to keep the search busy

// Reads the store from a string, which takes thousands of certificates in no time.
std::string VerifyInLargeStore(const Cert& leaf, const std::vector<Cert>& trusted) {
  std::string text;
  for (const Cert& certificate : trusted) text += certificate.ToPEM();
  CertStore store;
  EXPECT_TRUE(store.Load(ToText(text), nullptr)) << GetReason();
  return ToString(ToCertificate(leaf)
                      .VerifyChain(store, nullptr, /*checkRevocation=*/false, /*allowPartialChain=*/false,
                                   kNow, /*ignoreTime=*/false)
                      .GetResultString());
}

TEST(ChainSearch, FindsTheChainAmongThousandsOfRenewals) {
  std::vector<Cert> trusted = Decoys("issuing", Get().keys[2], Get().stranger, 2000);
  Append(trusted, Good());
  EXPECT_EQ(VerifyInLargeStore(Get().leaf, trusted), "ok");
}

TEST(ChainSearch, FindsTheChainBeyondRenewalsOnTwoLevels) {
  std::vector<Cert> trusted = Decoys("middle", Get().keys[1], Get().stranger, 400);
  Append(trusted, Decoys("issuing", Get().keys[2], {trusted[0], Get().keys[1]}, 400));
  EXPECT_EQ(VerifyInLargeStore(Get().leaf, trusted), "unable to get issuer certificate");
  Append(trusted, Good());
  EXPECT_EQ(VerifyInLargeStore(Get().leaf, trusted), "ok");
}

TEST(ChainSearch, FindsTheIssuerAmongThousandsOfKeysOfItsName) {
  CertSpec spec = Spec(CertSpec::Authority("root"), kLonger);
  spec.hasSubjectKeyId = false;
  std::vector<Cert> trusted;
  for (int i = 0; i < 1000; ++i) trusted.push_back(Cert::SelfSign(spec, KeyPair::MakeEC()));
  Append(trusted, Good());
  EXPECT_EQ(VerifyInLargeStore(Get().leaf, trusted), "ok");
}

// A public key alone, with which a check takes ninety times as long as with a usual one: the exponent is as
// long as the modulus. Nobody knows its private key, so it can be only the key of an issuer.
KeyPair MakeCostlyKey() {
  using Number = std::unique_ptr<BIGNUM, decltype(&BN_free)>;
  const Number modulus(BN_new(), BN_free);
  const Number exponent(BN_new(), BN_free);
  BN_rand(modulus.get(), 2048, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ODD);
  BN_rand(exponent.get(), 2047, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ODD);
  const std::unique_ptr<OSSL_PARAM_BLD, decltype(&OSSL_PARAM_BLD_free)> builder(OSSL_PARAM_BLD_new(),
                                                                                OSSL_PARAM_BLD_free);
  OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, modulus.get());
  OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, exponent.get());
  const std::unique_ptr<OSSL_PARAM, decltype(&OSSL_PARAM_free)> parameters(
      OSSL_PARAM_BLD_to_param(builder.get()), OSSL_PARAM_free);
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
      EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr), EVP_PKEY_CTX_free);
  EVP_PKEY* key = nullptr;
  EXPECT_EQ(EVP_PKEY_fromdata_init(context.get()), 1);
  EXPECT_EQ(EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, parameters.get()), 1);
  return KeyPair(key);
}

// A chain of three, and possible issuers of its leaf that end later than the right one.
std::string VerifyAmongCostlyIssuers(int count) {
  CertSpec spec = Spec(CertSpec::Authority("costly"));
  spec.hasSubjectKeyId = false;
  const Identity issuer = Identity::MakeIssued(spec, Get().root, SharedKey(0));
  std::vector<Cert> trusted = {issuer.certificate, Get().root.certificate};
  spec.validity = kLonger;
  for (int i = 0; i < count; ++i) trusted.push_back(Cert::Issue(spec, MakeCostlyKey(), Get().stranger));
  spec = Spec(CertSpec::EndEntity("leaf"));
  spec.hasAuthorityKeyId = false;
  return VerifyInLargeStore(Cert::Issue(spec, Get().keys[3], issuer), trusted);
}

// Thousands of usual keys of one name are tried (see above); of these only a few hundred.
TEST(ChainSearch, CountsChecksOfSignaturesByTheirCost) {
  EXPECT_EQ(VerifyAmongCostlyIssuers(400), "Too many certificates of the same name to find a chain");
}

// Authorities of two names with so many keys that each certified all of the other name.
struct Thicket {
  static constexpr int kKeys = 24;

  explicit Thicket(bool hasKeyIds) {
    CertSpec specs[] = {Spec(CertSpec::Authority("one"), kLonger), Spec(CertSpec::Authority("two"), kLonger)};
    for (CertSpec& spec : specs) {
      spec.hasSubjectKeyId = spec.hasAuthorityKeyId = hasKeyIds;
      for (int i = 0; i < kKeys; ++i) authorities.push_back(Identity::MakeRoot(spec, KeyPair::MakeEC()));
    }
    for (int i = 0; i < 2 * kKeys * kKeys; ++i) {
      const Identity& issuer = authorities[static_cast<std::size_t>(i % (2 * kKeys))];
      const int name = i % (2 * kKeys) < kKeys ? 1 : 0;
      const int subject = i / (2 * kKeys) + name * kKeys;
      certificates.push_back(
          Cert::Issue(specs[name], authorities[static_cast<std::size_t>(subject)].key, issuer));
    }
  }

  std::vector<Identity> authorities;
  std::vector<Cert> certificates;
};

TEST(ChainSearch, GivesUpAmongTooManyCrossCertificates) {
  for (const bool hasKeyIds : {false, true}) {
    const Thicket thicket(hasKeyIds);
    const Cert leaf = Cert::Issue(Spec(CertSpec::EndEntity("leaf")), Get().keys[3], thicket.authorities[0]);
    EXPECT_EQ(VerifyInLargeStore(leaf, thicket.certificates),
              "Too many certificates of the same name to find a chain");
    std::vector<Cert> trusted = thicket.certificates;
    trusted.push_back(thicket.authorities[0].certificate);
    EXPECT_EQ(VerifyInLargeStore(leaf, trusted), "ok");
  }
}

// Each of these issuers leads to the root, and each path breaks a rule that shows only in the whole path.
TEST(ChainSearch, GivesUpAfterThousandsOfTooLongPaths) {
  CertSpec spec = Spec(CertSpec::Authority("middle", 0), kLonger);
  std::vector<Cert> trusted = {Get().root.certificate, Get().issuing.certificate};
  for (int i = 0; i < 1200; ++i) trusted.push_back(Cert::Issue(spec, Get().keys[1], Get().root));
  EXPECT_EQ(VerifyInLargeStore(Get().leaf, trusted), "path length constraint exceeded");
}

}  // namespace

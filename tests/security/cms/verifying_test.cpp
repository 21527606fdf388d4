#include <gtest/gtest.h>

#include "tests/security/signed_builder.h"

namespace SecurityTest {
namespace {

constexpr const char* kNotSigned = "The content is not what was signed";
constexpr const char* kNotValid = "A signature is not valid";

std::string ReasonOfVerifying(const BuiltMessage& built) {
  CMSMsg message;
  if (!LoadBytes(message, built.Encode())) return "not loaded: " + GetReason();
  const std::string reason = ReasonOf(message.Verify());
  EXPECT_TRUE(IsQueueEmpty());
  EXPECT_EQ(ReasonOf(message.Verify()), reason) << "a second time";
  return reason;
}

TEST(CmsVerifyingTest, AcceptsAValidSignature) {
  EXPECT_EQ(ReasonOfVerifying(MessageOf(BuiltSigner::For("content"))), "");
}

TEST(CmsVerifyingTest, FailsForAMessageWithoutSigners) {
  BuiltMessage built;
  built.content = "content";
  EXPECT_EQ(ReasonOfVerifying(built), "The message has no signers");
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, built.Encode()));
  OruOssSec::CertStore store;
  EXPECT_FALSE(message.Verify(store));
  EXPECT_EQ(GetReason(), "The message has no signers");
  EXPECT_EQ(ContentOf(message), "content");
}

TEST(CmsVerifyingTest, RefusesOtherContent) {
  EXPECT_EQ(ReasonOfVerifying(MessageOf(BuiltSigner::For("content"), "Content")), kNotSigned);
  EXPECT_EQ(ReasonOfVerifying(MessageOf(BuiltSigner::For("content"), "")), kNotSigned);
  EXPECT_EQ(ReasonOfVerifying(MessageOf(BuiltSigner::For(""), "content")), kNotSigned);
}

TEST(CmsVerifyingTest, RefusesATruncatedDigest) {
  BuiltSigner signer;
  signer.attributes = {Attribute(kContentTypeOid, kDataOid),
                       Attribute(kMessageDigestOid, Tlv(0x04, Digest("SHA512", "content").substr(0, 32)))};
  EXPECT_EQ(ReasonOfVerifying(MessageOf(signer)), kNotSigned);
}

TEST(CmsVerifyingTest, RefusesADigestOfAnotherAlgorithm) {
  BuiltSigner signer = BuiltSigner::For("content", "SHA256", kSha256Oid);
  signer.attributes[1] = Attribute(kMessageDigestOid, Tlv(0x04, Digest("SHA512", "content")));
  EXPECT_EQ(ReasonOfVerifying(MessageOf(signer)), kNotSigned);
}

TEST(CmsVerifyingTest, RefusesASignatureOfAnotherKey) {
  BuiltSigner signer = BuiltSigner::For("content");
  signer.identity.key = Room().key;
  EXPECT_EQ(ReasonOfVerifying(MessageOf(signer)), kNotValid);
}

TEST(CmsVerifyingTest, RefusesAnAttributeChangedAfterSigning) {
  BuiltSigner signer = BuiltSigner::For("content");
  signer.Add(Attribute(Hex("06032A0304"), Tlv(0x0C, "group A")));
  std::string bytes = MessageOf(signer).Encode();
  bytes[bytes.find("group A") + 6] = 'B';
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, bytes));
  EXPECT_EQ(ReasonOf(message.Verify()), kNotValid);
}

TEST(CmsVerifyingTest, RefusesASignatureOfAShortKey) {
  BuiltSigner signer = BuiltSigner::For("content");
  signer.identity = CryptStand::Identity::MakeIssued(CertSpec::EndEntity("Weak"), Root(),
                                                     CryptStand::KeyPair::MakeRSA(1024));
  BuiltMessage built = MessageOf(signer);
  built.certificates = {signer.identity.certificate};
  EXPECT_EQ(ReasonOfVerifying(built), "A signer's RSA key has fewer than 2048 bits");
}

TEST(CmsVerifyingTest, RefusesASignatureDirectlyOverTheContent) {
  // The content is the encoding of signed attributes of another message, so its signature fits both.
  const BuiltSigner signer = BuiltSigner::For("content");
  std::vector<std::string> sorted = signer.attributes;
  const std::string attributes = Tlv(0x31, sorted[0] + sorted[1]);
  BuiltSigner moved;
  moved.hasAttributes = false;
  BuiltMessage built = MessageOf(moved, attributes);
  EXPECT_EQ(ReasonOfVerifying(built), "A signer has no signed attributes");
}

TEST(CmsVerifyingTest, RefusesEmptySignedAttributes) {
  BuiltSigner signer;
  EXPECT_EQ(ReasonOfVerifying(MessageOf(signer)), "A signer has no signed attributes");
}

struct AttributesRow {
  const char* why;
  std::vector<std::string> attributes;
};

TEST(CmsVerifyingTest, DemandsContentTypeAndDigestOnceWithOneValue) {
  const std::string type = Attribute(kContentTypeOid, kDataOid);
  const std::string value = Tlv(0x04, Digest("SHA512", "content"));
  const std::string digest = Attribute(kMessageDigestOid, value);
  const AttributesRow rows[] = {
      {"no content type", {digest}},
      {"no digest", {type}},
      {"neither", {Attribute(Hex("06032A0304"), Tlv(0x0C, "x"))}},
      {"two content types", {type, type, digest}},
      {"two digests", {type, digest, digest}},
      {"two different digests", {type, digest, Attribute(kMessageDigestOid, Tlv(0x04, "x"))}},
      {"content type of two values", {Attribute(kContentTypeOid, kDataOid + kDataOid), digest}},
      {"digest of two values", {type, Attribute(kMessageDigestOid, value + Tlv(0x04, "x"))}},
      {"digest without value", {type, Attribute(kMessageDigestOid, "")}},
      {"digest of another type", {type, Attribute(kMessageDigestOid, Tlv(0x0C, "x"))}},
      {"content type of another type", {Attribute(kContentTypeOid, Tlv(0x0C, "x")), digest}},
      {"another content type", {Attribute(kContentTypeOid, Tlv(0x06, Hex("2A0304"))), digest}},
  };
  for (const AttributesRow& row : rows) {
    BuiltSigner signer;
    signer.attributes = row.attributes;
    EXPECT_NE(ReasonOfVerifying(MessageOf(signer)), "") << row.why;
  }
}

TEST(CmsVerifyingTest, RefusesContentDeclaredAsAnotherType) {
  BuiltMessage built = MessageOf(BuiltSigner::For("content"));
  built.typeOid = Tlv(0x06, Hex("2A0304"));
  EXPECT_EQ(ReasonOfVerifying(built), "A signature is for content of another type");
}

TEST(CmsVerifyingTest, RefusesAnUnknownDigest) {
  BuiltSigner signer = BuiltSigner::For("content");
  signer.digestOid = Tlv(0x06, Hex("2A0304"));
  EXPECT_EQ(ReasonOfVerifying(MessageOf(signer)), "A signer's digest algorithm is not known");
}

TEST(CmsVerifyingTest, RefusesAMissingCertificate) {
  BuiltMessage built = MessageOf(BuiltSigner::For("content"));
  built.certificates = {Room().certificate};
  EXPECT_EQ(ReasonOfVerifying(built), "The message does not hold a signer's certificate");
}

TEST(CmsVerifyingTest, ChecksSignersOfSeveralDigestsInOnePass) {
  BuiltMessage built;
  built.content = "content";
  built.signers = {BuiltSigner::For("content"), BuiltSigner::For("content", "SHA256", kSha256Oid),
                   BuiltSigner::For("content", "SHA3-256", Tlv(0x06, Hex("608648016503040208"))),
                   BuiltSigner::For("content", "SHA1", Tlv(0x06, Hex("2B0E03021A")))};
  EXPECT_EQ(ReasonOfVerifying(built), "");
}

TEST(CmsVerifyingTest, FailsWhenAnySignerFails) {
  BuiltMessage built = MessageOf(BuiltSigner::For("content"));
  built.signers.push_back(BuiltSigner::For("another"));
  EXPECT_EQ(ReasonOfVerifying(built), kNotSigned);
  std::swap(built.signers[0], built.signers[1]);
  EXPECT_EQ(ReasonOfVerifying(built), kNotSigned);
  built.signers = {BuiltSigner::For("content"), BuiltSigner::For("content")};
  built.signers[1].identity.key = Room().key;
  EXPECT_EQ(ReasonOfVerifying(built), kNotValid);
}

TEST(CmsVerifyingTest, RefusesAMessageOfAnotherType) {
  ScratchDirectory scratch;
  ASSERT_TRUE(EnvelopeFile(scratch.Make("plain", "x"), scratch.File("enveloped")));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch.File("enveloped")));
  EXPECT_EQ(ReasonOf(message.Verify()), "The message is not a signed one");
}

TEST(CmsVerifyingTest, ChecksAllOfAContentInTinySegments) {
  // The octets of the content in segments of one byte, nested: only the whole counts.
  const std::string plain = MessageOf(BuiltSigner::For("content")).Encode();
  std::string segments;
  for (const char c : std::string("content")) segments += Open(0x24, Tlv(0x04, std::string(1, c)));
  BuiltMessage built = MessageOf(BuiltSigner::For("content"));
  const std::string fields = Hex("020101") + Tlv(0x31, Tlv(0x30, kSha512Oid)) +
                             Tlv(0x30, kDataOid + Tlv(0xA0, Open(0x24, segments))) +
                             Tlv(0xA0, Signer().certificate.ToDER()) + Tlv(0x31, built.signers[0].Encode());
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, Tlv(0x30, Hex("06092A864886F70D010702") + Tlv(0xA0, Tlv(0x30, fields)))));
  EXPECT_TRUE(message.Verify()) << GetReason();
  EXPECT_EQ(ContentOf(message), "content");
}

// --- the form with a store --------------------------------------------------------------------------------

std::string UtcTime(const char* text) {
  return Attribute(kSigningTimeOid, Tlv(0x17, text));
}

/// A hierarchy of three, its end entity valid for one past year.
struct Hierarchy {
  Identity root = Identity::MakeRoot(CertSpec::Authority("Old Root"), SharedKey(0));
  Identity middle = Identity::MakeIssued(CertSpec::Authority("Middle"), root, SharedKey(1));
  Identity end;

  Hierarchy() {
    CertSpec authority = CertSpec::Authority("Old Root");
    authority.validity = Validity::Between("2000-01-01", "2040-01-01");
    root = Identity::MakeRoot(authority, SharedKey(0));
    authority = CertSpec::Authority("Middle");
    authority.validity = Validity::Between("2000-01-01", "2040-01-01");
    middle = Identity::MakeIssued(authority, root, SharedKey(2));
    CertSpec spec = CertSpec::EndEntity("Old Signer");
    spec.validity = Validity::Between("2010-01-01", "2010-12-31");
    spec.extendedKeyUsage = "serverAuth";
    end = Identity::MakeIssued(spec, middle, SharedKey(1));
  }
};

const Hierarchy& Old() {
  static const Hierarchy hierarchy;
  return hierarchy;
}

class CmsChainTest : public testing::Test {
 protected:
  std::string Verify(const std::vector<Cert>& trusted, const std::vector<Cert>& inMessage,
                     const std::string& signingTime) {
    BuiltSigner signer = BuiltSigner::For("content");
    signer.identity = signer_;
    if (!signingTime.empty()) signer.Add(signingTime);
    BuiltMessage built = MessageOf(signer);
    built.certificates = inMessage;
    OruOssSec::CertStore store;
    for (const Cert& certificate : trusted) store.Add(ToCertificate(certificate));
    CMSMsg message;
    EXPECT_TRUE(LoadBytes(message, built.Encode())) << GetReason();
    const std::string reason = ReasonOf(message.Verify(store));
    EXPECT_TRUE(IsQueueEmpty());
    return reason;
  }

  CryptStand::Identity signer_ = Old().end;
  const Cert& root_ = Old().root.certificate;
  const Cert& middle_ = Old().middle.certificate;
  const Cert& end_ = Old().end.certificate;
  const std::string inTime_ = UtcTime("100601120000Z");
};

TEST_F(CmsChainTest, AcceptsAnIntermediateFromTheMessage) {
  EXPECT_EQ(Verify({root_}, {end_, middle_}, inTime_), "");
}

// An authority may renew its key under its old name.
TEST_F(CmsChainTest, FindsTheIssuerBySignatureAmongAuthoritiesOfOneName) {
  CryptStand::CertSpec authority = CryptStand::CertSpec::Authority("Renewed authority");
  authority.validity = CryptStand::Validity::Between("2010-01-01", "2011-01-01");
  authority.hasSubjectKeyId = authority.hasAuthorityKeyId = false;
  CryptStand::CertSpec end = CryptStand::CertSpec::EndEntity("Signer");
  end.validity = authority.validity;
  end.hasAuthorityKeyId = false;
  const auto first = CryptStand::Identity::MakeRoot(authority);
  const auto second = CryptStand::Identity::MakeRoot(authority);
  for (const auto& issuer : {first, second}) {
    signer_ = CryptStand::Identity::MakeIssued(end, issuer);
    EXPECT_EQ(Verify({first.certificate, second.certificate}, {signer_.certificate}, inTime_), "");
  }
}

// A renewed intermediate whose root is in no store does not hide the one that leads to the root, wherever the
// two are.
TEST_F(CmsChainTest, FindsTheChainBesideACrossCertificateThatEndsLater) {
  CryptStand::CertSpec spec = CryptStand::CertSpec::Authority("Stranger");
  spec.validity = CryptStand::Validity::Between("2000-01-01", "2060-01-01");
  const auto stranger = CryptStand::Identity::MakeRoot(spec, SharedKey(3));
  spec.subject = CryptStand::CertSpec::Authority("Middle").subject;
  const Cert crossed = Cert::Issue(spec, Old().middle.key, stranger);
  EXPECT_EQ(Verify({root_}, {end_, crossed, middle_}, inTime_), "");
  EXPECT_EQ(Verify({root_, middle_}, {end_, crossed}, inTime_), "");
  EXPECT_EQ(Verify({root_, crossed}, {end_, middle_}, inTime_), "");
  EXPECT_EQ(Verify({root_}, {end_, crossed, stranger.certificate, middle_}, inTime_), "");
  EXPECT_NE(Verify({root_}, {end_, crossed, stranger.certificate}, inTime_), "");
}

TEST_F(CmsChainTest, AcceptsAnIntermediateFromTheStore) {
  EXPECT_EQ(Verify({root_, middle_}, {end_}, inTime_), "");
}

TEST_F(CmsChainTest, FailsWhenTheIntermediateIsMissing) {
  EXPECT_EQ(Verify({root_}, {end_}, inTime_), "unable to get local issuer certificate");
}

TEST_F(CmsChainTest, FailsForAStoreWithoutTheRoot) {
  EXPECT_EQ(Verify({middle_}, {end_}, inTime_), "unable to get issuer certificate");
  EXPECT_EQ(Verify({Root().certificate}, {end_, middle_}, inTime_), "unable to get local issuer certificate");
}

TEST_F(CmsChainTest, DoesNotTrustARootFromTheMessage) {
  EXPECT_EQ(Verify({Root().certificate}, {end_, middle_, root_}, inTime_),
            "self-signed certificate in certificate chain");
}

TEST_F(CmsChainTest, FailsForAnEmptyStore) {
  EXPECT_NE(Verify({}, {end_, middle_, root_}, inTime_), "");
}

TEST_F(CmsChainTest, ChecksTheChainAtTheSigningTime) {
  EXPECT_EQ(Verify({root_}, {end_, middle_}, UtcTime("100101000000Z")), "");
  EXPECT_EQ(Verify({root_}, {end_, middle_}, UtcTime("101230235959Z")), "");
  EXPECT_EQ(Verify({root_}, {end_, middle_}, UtcTime("091231235959Z")), "certificate is not yet valid");
  EXPECT_EQ(Verify({root_}, {end_, middle_}, UtcTime("110101000000Z")), "certificate has expired");
}

TEST_F(CmsChainTest, AcceptsAGeneralizedTime) {
  const std::string late = Attribute(kSigningTimeOid, Tlv(0x18, "20600101000000Z"));
  EXPECT_EQ(Verify({root_}, {end_, middle_}, late), "certificate has expired");
  const std::string good = Attribute(kSigningTimeOid, Tlv(0x18, "20100601000000Z"));
  EXPECT_EQ(Verify({root_}, {end_, middle_}, good), "");
}

TEST_F(CmsChainTest, ChecksTheChainNowWithoutASigningTime) {
  EXPECT_EQ(Verify({root_}, {end_, middle_}, ""), "certificate has expired");
}

// OpenSSL's versions differ about such a time, so the message is refused before they parse it.
TEST_F(CmsChainTest, FailsForAnUnreadableSigningTime) {
  const std::string reason = "The signing time of a signer cannot be read";
  for (const std::string& time :
       {UtcTime("1006011200"), UtcTime("nonsense"), UtcTime("100631120000Z"), UtcTime("1006011200Z"),
        Attribute(kSigningTimeOid, Tlv(0x18, "Z")), Attribute(kSigningTimeOid, Tlv(0x0C, "100601120000Z")),
        Attribute(kSigningTimeOid, ""), inTime_ + inTime_,
        Attribute(kSigningTimeOid, Tlv(0x17, "100601120000Z") + Tlv(0x17, "110601120000Z"))}) {
    BuiltMessage built = MessageOf(BuiltSigner::For("content").Add(time));
    CMSMsg message;
    ScratchDirectory scratch;
    EXPECT_EQ(message.TryLoad(scratch.Make("message", built.Encode())), CMSMsg::LoadResult::Unreadable)
        << CryptStand::ToHex(time);
    EXPECT_EQ(GetReason(), reason);
    // Any signer counts.
    built.signers.insert(built.signers.begin(), BuiltSigner::For("content").Add(inTime_));
    EXPECT_FALSE(LoadBytes(message, built.Encode())) << CryptStand::ToHex(time);
    EXPECT_EQ(GetReason(), reason);
  }
}

TEST_F(CmsChainTest, ChecksTheSignatureBeforeTheChain) {
  BuiltSigner signer = BuiltSigner::For("content");
  signer.identity.key = Room().key;
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, MessageOf(signer).Encode()));
  OruOssSec::CertStore store;
  store.Add(ToCertificate(Root().certificate));
  EXPECT_EQ(ReasonOf(message.Verify(store)), kNotValid);
}

}  // namespace
}  // namespace SecurityTest

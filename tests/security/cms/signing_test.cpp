#include <functional>
#include <gtest/gtest.h>
#include <openssl/cms.h>

#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

using OruGuiBase::DateTime;
using OruOssSec::CryptoMessageSyntax;

constexpr const char* kGroupOid = "1.3.6.1.4.1.48215.2.1";

/// A signer whose result a test sets.
class ScriptedSigner final : public OruOssSec::ISignHash {
 public:
  using Respond = std::function<bool(const BlobConst&, Blob&)>;
  explicit ScriptedSigner(Respond response) : response_(std::move(response)) {}
  bool SignHash(const BlobConst& hash, Blob& signature) override { return response_(hash, signature); }

 private:
  Respond response_;
};

void Fill(Blob& blob, const std::string& bytes) {
  std::copy(bytes.begin(), bytes.end(), blob.Alloc(static_cast<std::uint32_t>(bytes.size())));
}

class CmsSigningTest : public testing::Test {
 protected:
  bool Sign(OruOssSec::ISignHash& signer, const KVMap& attributes = {}, const DateTime* time = nullptr) {
    return CryptoMessageSyntax::Sign(plain_, signed_, ToCertificate(Signer().certificate), &signer,
                                     attributes, time);
  }
  bool Sign(const KVMap& attributes, const DateTime* time = nullptr) {
    KeySigner signer(Signer().key);
    return Sign(signer, attributes, time);
  }
  bool SignWith(ScriptedSigner::Respond response) {
    ScriptedSigner signer(std::move(response));
    LeaveStaleReason();
    return Sign(signer);
  }

  ScratchDirectory scratch_;
  File plain_ = scratch_.Make("plain", "some content");
  File signed_ = scratch_.File("signed");
};

TEST_F(CmsSigningTest, AsksTheSignerOnceForASHA512Hash) {
  KeySigner signer(Signer().key);
  ASSERT_TRUE(Sign(signer)) << GetReason();
  EXPECT_EQ(signer.calls, 1);
  EXPECT_EQ(signer.lastHash.size(), 64U);
}

TEST_F(CmsSigningTest, WritesContainersOfIndefiniteLengthAndContentInSegments) {
  ASSERT_TRUE(Sign({}));
  const std::string bytes = scratch_.Read("signed");
  const std::string head = CryptStand::ToHex(bytes.substr(0, 68), true);
  EXPECT_EQ(head,
            "3080"
            "06092A864886F70D010702A0803080"  // signedData
            "020101"                          // version 1 (RFC 5652, 5.1)
            "310D300B0609608648016503040203"  // SHA-512
            "308006092A864886F70D010701"      // data
            "A0802480"
            "040C736F6D6520636F6E74656E74"  // one segment
            "0000");
  EXPECT_EQ(bytes.substr(bytes.size() - 6), std::string(6, '\0'));
}

TEST_F(CmsSigningTest, WritesTheSignersCertificate) {
  ASSERT_TRUE(Sign({}));
  CMSMsg message;
  ASSERT_TRUE(message.Load(signed_));
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message.GetSigners(signers));
  ASSERT_EQ(signers.GetCount(), 1U);
  EXPECT_EQ(OruOssSec::Certificate::Compare(signers.Get(0)->certificate, ToCertificate(Signer().certificate)),
            0);
}

TEST_F(CmsSigningTest, SignsWithPKCS1AndSHA512) {
  ASSERT_TRUE(Sign({}));
  const std::string bytes = scratch_.Read("signed");
  BIO* bio = BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size()));
  CMS_ContentInfo* cms = d2i_CMS_bio(bio, nullptr);
  ASSERT_NE(cms, nullptr);
  STACK_OF(CMS_SignerInfo)* infos = CMS_get0_SignerInfos(cms);
  ASSERT_EQ(sk_CMS_SignerInfo_num(infos), 1);
  X509_ALGOR* digest = nullptr;
  X509_ALGOR* signature = nullptr;
  CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(infos, 0), nullptr, nullptr, &digest, &signature);
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, digest);
  EXPECT_EQ(OBJ_obj2nid(object), NID_sha512);
  X509_ALGOR_get0(&object, nullptr, nullptr, signature);
  EXPECT_EQ(OBJ_obj2nid(object), NID_rsaEncryption);
  CMS_ContentInfo_free(cms);
  BIO_free(bio);
}

TEST_F(CmsSigningTest, WritesAttributesAsTheyWereGiven) {
  KVMap attributes;
  attributes.Set("1.3.6.1.4.1.48215.2.3", "https://example.org/mx/r%20oom");
  attributes.Set(kGroupOid, "Gruppe \xC3\xBC");
  attributes.Set("1.3.6.1.4.1.48215.2.2", "");
  attributes.Set("2.999.1", AnsiStr("a\0b", 3));
  ASSERT_TRUE(Sign(attributes)) << GetReason();
  CMSMsg message;
  ASSERT_TRUE(message.Load(signed_));
  EXPECT_TRUE(message.Verify()) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message.GetSigners(signers)) << GetReason();
  const KVMap& read = signers.Get(0)->signedAttributes;
  for (const auto& [oid, value] : attributes) {
    EXPECT_EQ(read.Get(oid).AsString(), value.AsString());
  }
}

struct AttributeRow {
  const char* why;
  const char* oid;
  OruGuiBase::Val value;
  const char* reason;
};

TEST_F(CmsSigningTest, RefusesAttributesThatCannotBeWritten) {
  using OruGuiBase::Val;
  const AttributeRow rows[] = {
      {"no OID", "group", Val("x"), "A signed attribute is not named by an object identifier"},
      {"empty OID", "", Val("x"), "A signed attribute is not named by an object identifier"},
      {"no text", kGroupOid, Val(std::int64_t{1}), "A signed attribute is not a string"},
      {"nil", kGroupOid, Val(), "A signed attribute is not a string"},
      {"not UTF-8", kGroupOid, Val("\xC3"), "A signed attribute is not UTF-8"},
      {"the content type", "1.2.840.113549.1.9.3", Val("x"), "A signed attribute is given twice"},
      {"the digest", "1.2.840.113549.1.9.4", Val("x"), "A signed attribute is given twice"},
      {"the signing time", "1.2.840.113549.1.9.5", Val("x"), "A signed attribute is given twice"},
  };
  for (const AttributeRow& row : rows) {
    KVMap attributes;
    attributes.Set(row.oid, row.value);
    EXPECT_FALSE(Sign(attributes)) << row.why;
    EXPECT_EQ(GetReason(), row.reason) << row.why;
  }
}

TEST_F(CmsSigningTest, RefusesOneOIDInTwoSpellings) {
  KVMap attributes;
  attributes.Set("1.2.3", "x");
  attributes.Set("1.2.03", "y");
  EXPECT_FALSE(Sign(attributes));
  EXPECT_EQ(GetReason(), "A signed attribute is given twice");
}

class SigningTimeTest : public CmsSigningTest, public testing::WithParamInterface<DateTime> {};

TEST_P(SigningTimeTest, ComesBack) {
  const DateTime time = GetParam();
  ASSERT_TRUE(Sign({}, &time)) << GetReason();
  CMSMsg message;
  ASSERT_TRUE(message.Load(signed_));
  EXPECT_TRUE(message.Verify()) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message.GetSigners(signers)) << GetReason();
  EXPECT_EQ(signers.Get(0)->signingTime, time);
}

INSTANTIATE_TEST_SUITE_P(Times, SigningTimeTest,
                         testing::Values(At(2024, 2, 29, 23, 59, 58), At(1950, 1, 1),
                                         At(1999, 12, 31, 1, 2, 3), At(2000, 1, 1),
                                         At(2049, 12, 31, 23, 59, 59), At(2050, 1, 1),
                                         At(1949, 12, 31, 23, 59, 59), At(9999, 12, 31)));

TEST_F(CmsSigningTest, WritesTimesTo2049AsUTCTimeAndLaterOnesAsGeneralizedTime) {
  const std::string utc = std::string("\x17\x0D") + "491231235959Z";
  const std::string generalized = std::string("\x18\x0F") + "20500101000000Z";
  DateTime time = At(2049, 12, 31, 23, 59, 59);
  ASSERT_TRUE(Sign({}, &time));
  EXPECT_NE(scratch_.Read("signed").find(utc), std::string::npos);
  time = At(2050, 1, 1);
  ASSERT_TRUE(Sign({}, &time));
  EXPECT_NE(scratch_.Read("signed").find(generalized), std::string::npos);
}

TEST_F(CmsSigningTest, LeavesOutTheSigningTimeWithoutATime) {
  ASSERT_TRUE(Sign({}, nullptr));
  CMSMsg message;
  ASSERT_TRUE(message.Load(signed_));
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message.GetSigners(signers));
  EXPECT_EQ(signers.Get(0)->signingTime, DateTime());
  EXPECT_TRUE(signers.Get(0)->signedAttributes.Get("1.2.840.113549.1.9.5").IsNil());
}

TEST_F(CmsSigningTest, RefusesAnInvalidTime) {
  for (const DateTime& time :
       {DateTime(), At(2023, 2, 29), At(2024, 13, 1), At(2024, 1, 1, 24), At(10000, 1, 1)}) {
    EXPECT_FALSE(Sign({}, &time));
    EXPECT_EQ(GetReason(), "The signing time is invalid");
  }
}

TEST_F(CmsSigningTest, KeepsTheReasonOfTheSigner) {
  EXPECT_FALSE(SignWith([](const BlobConst&, Blob&) {
    OruGuiBase::SetErrorMessage("No key server answers");
    return false;
  }));
  EXPECT_EQ(GetReason(), "No key server answers");
}

TEST_F(CmsSigningTest, GivesAReasonWhenTheSignerGivesNone) {
  EXPECT_FALSE(SignWith([](const BlobConst&, Blob&) { return false; }));
  EXPECT_EQ(GetReason(), "The signer did not sign the hash");
}

TEST_F(CmsSigningTest, FailsWhenTheSignerThrows) {
  EXPECT_FALSE(SignWith([](const BlobConst&, Blob&) -> bool { throw 1; }));
  EXPECT_EQ(GetReason(), "The signer did not sign the hash");
}

TEST_F(CmsSigningTest, ClearsTheErrorStateBeforeItAsksTheSigner) {
  std::uint32_t code = 1;
  EXPECT_TRUE(SignWith([&code](const BlobConst& hash, Blob& signature) {
    code = OruGuiBase::GetLastError();
    return KeySigner(Signer().key).SignHash(hash, signature);
  }));
  EXPECT_EQ(code, 0U);
}

TEST_F(CmsSigningTest, ForgetsTheReasonOfAnAttemptThatTheSignerRepeated) {
  EXPECT_TRUE(SignWith([](const BlobConst& hash, Blob& signature) {
    OruGuiBase::SetErrorMessage("The first key server is down");
    return KeySigner(Signer().key).SignHash(hash, signature);
  }));
  EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
}

TEST_F(CmsSigningTest, FailsForAnEmptySignature) {
  EXPECT_FALSE(SignWith([](const BlobConst&, Blob&) { return true; }));
  EXPECT_EQ(GetReason(), "The signer returned no signature");
}

TEST_F(CmsSigningTest, FailsForASignatureOfAnotherKey) {
  EXPECT_FALSE(SignWith([](const BlobConst& hash, Blob& signature) {
    return KeySigner(Room().key).SignHash(hash, signature);
  }));
  EXPECT_EQ(GetReason(), "The signature does not fit the signer's certificate");
}

TEST_F(CmsSigningTest, FailsForASignatureOfAnotherHash) {
  EXPECT_FALSE(SignWith([](const BlobConst&, Blob& signature) {
    Fill(signature, Signer().key.SignHash(std::string(64, 'h')));
    return true;
  }));
  EXPECT_EQ(GetReason(), "The signature does not fit the signer's certificate");
}

TEST_F(CmsSigningTest, FailsForASignatureOfAnotherLength) {
  for (const std::size_t size : {1U, 255U, 257U, 4096U}) {
    EXPECT_FALSE(SignWith([size](const BlobConst&, Blob& signature) {
      Fill(signature, std::string(size, 's'));
      return true;
    })) << size;
    EXPECT_EQ(GetReason(), "The signature does not fit the signer's certificate") << size;
    EXPECT_TRUE(IsQueueEmpty());
  }
}

// Nobody would accept the signature as a proof.
TEST_F(CmsSigningTest, RefusesAShortKey) {
  const Identity weak = Identity::MakeIssued(CertSpec::EndEntity("Weak"), Root(), KeyPair::MakeRSA(1024));
  KeySigner signer(weak.key);
  EXPECT_FALSE(
      CryptoMessageSyntax::Sign(plain_, signed_, ToCertificate(weak.certificate), &signer, {}, nullptr));
  EXPECT_EQ(GetReason(), "The signer's RSA key has fewer than 2048 bits");
  EXPECT_EQ(signer.calls, 0);
  EXPECT_FALSE(scratch_.Exists("signed"));
}

TEST_F(CmsSigningTest, RefusesAKeyThatIsNotRSA) {
  static const Identity curve = Identity::MakeIssued(CertSpec::EndEntity("Curve"), Root(), KeyPair::MakeEC());
  KeySigner signer(curve.key);
  EXPECT_FALSE(
      CryptoMessageSyntax::Sign(plain_, signed_, ToCertificate(curve.certificate), &signer, {}, nullptr));
  EXPECT_EQ(GetReason(), "The signer's key is not an RSA key");
  EXPECT_EQ(signer.calls, 0);
  EXPECT_FALSE(scratch_.Exists("signed"));
}

TEST_F(CmsSigningTest, RefusesAnEmptyCertificateAndNoSigner) {
  KeySigner signer(Signer().key);
  EXPECT_FALSE(CryptoMessageSyntax::Sign(plain_, signed_, {}, &signer, {}, nullptr));
  EXPECT_EQ(GetReason(), "The signer's certificate is empty");
  EXPECT_FALSE(
      CryptoMessageSyntax::Sign(plain_, signed_, ToCertificate(Signer().certificate), nullptr, {}, nullptr));
  EXPECT_EQ(GetReason(), "There is nobody to sign the hash");
}

TEST_F(CmsSigningTest, ReportsAMissingSourceBeforeItCreatesTheTarget) {
  EXPECT_FALSE(SignFile(scratch_.File("missing"), signed_));
  EXPECT_EQ(GetReason(), "No such file or directory");
  EXPECT_FALSE(scratch_.Exists("signed"));
}

TEST_F(CmsSigningTest, ReportsTheSystemsReasonWhenTheTargetCannotBeCreated) {
  EXPECT_FALSE(SignFile(plain_, File(ToText(scratch_.Path("no/where").string()))));
  EXPECT_EQ(GetReason(), "No such file or directory");
}

TEST_F(CmsSigningTest, ReportsTheSystemsReasonOnAFullDisk) {
  EXPECT_FALSE(SignFile(plain_, File("/dev/full")));
  EXPECT_EQ(GetReason(), "No space left on device");
}

TEST_F(CmsSigningTest, FailsWhenTheSourceIsCutWhileItIsRead) {
  // The target is the source too, so it is emptied before it is read.
  EXPECT_FALSE(SignFile(plain_, plain_));
  EXPECT_EQ(GetReason(), "The file changed while it was read");
}

TEST_F(CmsSigningTest, ReplacesTheWholeTarget) {
  scratch_.Make("signed", MakeBytes(100000));
  ASSERT_TRUE(Sign({}));
  EXPECT_LT(scratch_.Read("signed").size(), 4000U);
  CMSMsg message;
  EXPECT_TRUE(message.Load(signed_)) << GetReason();
}

TEST_F(CmsSigningTest, LeavesOpenSSLsQueueEmpty) {
  ASSERT_TRUE(Sign({}));
  EXPECT_TRUE(IsQueueEmpty());
}

}  // namespace
}  // namespace SecurityTest

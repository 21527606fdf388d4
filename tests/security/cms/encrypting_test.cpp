#include <gtest/gtest.h>

#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

using OruOssSec::CipherAlgorithm;

class CmsEncryptingTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(message_.CreateEnvelopedData(CipherAlgorithm::AES256CBC)) << GetReason();
  }
  bool AddRoom() { return message_.AddRecipient(ToCertificate(Room().certificate)); }
  bool Save() { return message_.Save(CMSMsg::Format::BERStream, plain_, target_); }

  ScratchDirectory scratch_;
  File plain_ = scratch_.Make("plain", "some content");
  File target_ = scratch_.File("enveloped");
  CMSMsg message_;
};

TEST_F(CmsEncryptingTest, HasItsTypeFromTheStart) {
  EXPECT_EQ(message_.GetType(), CMSMsg::Type::EnvelopedData);
  EXPECT_EQ(ToString(message_.GetTypeStr()), "envelopedData");
}

TEST_F(CmsEncryptingTest, WritesContainersOfIndefiniteLengthAndContentInSegments) {
  ASSERT_TRUE(AddRoom());
  ASSERT_TRUE(Save()) << GetReason();
  const std::string bytes = scratch_.Read("enveloped");
  EXPECT_EQ(CryptStand::ToHex(bytes.substr(0, 20), true),
            "3080"
            "06092A864886F70D010703A0803080"  // envelopedData
            "020100");                        // version 0 (RFC 5652, 6.1)
  EXPECT_NE(bytes.find(Hex("3080 06092A864886F70D010701")), std::string::npos) << "content info";
  EXPECT_NE(bytes.find(Hex("060960864801650304012A 0410")), std::string::npos) << "AES-256-CBC";
  EXPECT_NE(bytes.find(Hex("06092A864886F70D010101 0500")), std::string::npos) << "RSAES-PKCS1-v1_5";
  EXPECT_EQ(CryptStand::ToHex(bytes.substr(bytes.size() - 30, 4), true), "A0800410");
  EXPECT_EQ(bytes.substr(bytes.size() - 10), std::string(10, '\0'));
}

TEST_F(CmsEncryptingTest, NamesRecipientsByIssuerAndSerialNumber) {
  ASSERT_TRUE(AddRoom());
  ASSERT_TRUE(Save());
  CMSMsg read;
  ASSERT_TRUE(read.Load(target_));
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  ASSERT_TRUE(read.GetRecipients(recipients)) << GetReason();
  ASSERT_EQ(recipients.GetCount(), 1U);
  EXPECT_EQ(ToString(recipients.Get(0)->issuer), Room().certificate.GetIssuer());
  EXPECT_EQ(ToString(recipients.Get(0)->serial), Room().certificate.GetSerial());
  EXPECT_EQ(Room().key.Decrypt(ToString(recipients.Get(0)->encryptedKey)).size(), 32U);
}

TEST_F(CmsEncryptingTest, IsOpenedByEachOfSeveralRecipients) {
  ASSERT_TRUE(AddRoom());
  ASSERT_TRUE(message_.AddRecipient(ToCertificate(Signer().certificate))) << GetReason();
  ASSERT_TRUE(Save());
  CMSMsg read;
  ASSERT_TRUE(read.Load(target_));
  ASSERT_TRUE(read.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
  EXPECT_EQ(ContentOf(read), "some content");
  ASSERT_TRUE(read.SetRecipientKey(ToCertificate(Signer().certificate), ToPrivateKey(Signer().key)));
  EXPECT_EQ(ContentOf(read), "some content");
}

TEST_F(CmsEncryptingTest, UsesAnotherKeyAndVectorForEachMessage) {
  ASSERT_TRUE(AddRoom());
  ASSERT_TRUE(Save());
  const std::string first = scratch_.Read("enveloped");
  ASSERT_TRUE(EnvelopeFile(plain_, target_));
  const std::string second = scratch_.Read("enveloped");
  EXPECT_NE(first.substr(first.size() - 26), second.substr(second.size() - 26));
}

TEST_F(CmsEncryptingTest, RefusesAnotherCipher) {
  CMSMsg message;
  EXPECT_FALSE(message.CreateEnvelopedData(static_cast<CipherAlgorithm>(1)));
  EXPECT_EQ(GetReason(), "The content encryption algorithm is not supported");
  EXPECT_EQ(message.GetType(), CMSMsg::Type::Unknown);
}

TEST_F(CmsEncryptingTest, RefusesAnEmptyCertificate) {
  EXPECT_FALSE(message_.AddRecipient({}));
  EXPECT_EQ(GetReason(), "The recipient's certificate is empty");
}

TEST_F(CmsEncryptingTest, RefusesACertificateWithAShortRSAKey) {
  const Identity weak = Identity::MakeIssued(CertSpec::EndEntity("Weak"), Root(), KeyPair::MakeRSA(1024));
  EXPECT_FALSE(message_.AddRecipient(ToCertificate(weak.certificate)));
  EXPECT_EQ(GetReason(), "The recipient's RSA key has fewer than 2048 bits");
}

TEST_F(CmsEncryptingTest, RefusesACertificateWithoutAnRSAKey) {
  static const Identity curve = Identity::MakeIssued(CertSpec::EndEntity("Curve"), Root(), KeyPair::MakeEC());
  EXPECT_FALSE(message_.AddRecipient(ToCertificate(curve.certificate)));
  EXPECT_EQ(GetReason(), "The recipient's key is not an RSA key");
  EXPECT_FALSE(Save());
  EXPECT_EQ(GetReason(), "The message has no recipient");
}

TEST_F(CmsEncryptingTest, RefusesToSaveWithoutRecipientsAndLeavesTheTarget) {
  scratch_.Make("enveloped", "old");
  EXPECT_FALSE(Save());
  EXPECT_EQ(GetReason(), "The message has no recipient");
  EXPECT_EQ(scratch_.Read("enveloped"), "old");
}

TEST_F(CmsEncryptingTest, RefusesAnotherFormat) {
  ASSERT_TRUE(AddRoom());
  EXPECT_FALSE(message_.Save(static_cast<CMSMsg::Format>(1), plain_, target_));
  EXPECT_EQ(GetReason(), "The format is not supported");
}

TEST_F(CmsEncryptingTest, CanBeSavedAfterTheContentWasMissing) {
  ASSERT_TRUE(AddRoom());
  EXPECT_FALSE(message_.Save(CMSMsg::Format::BERStream, scratch_.File("missing"), target_));
  EXPECT_EQ(GetReason(), "No such file or directory");
  EXPECT_FALSE(scratch_.Exists("enveloped"));
  EXPECT_TRUE(Save()) << GetReason();
}

TEST_F(CmsEncryptingTest, RefusesToSaveTwice) {
  ASSERT_TRUE(AddRoom());
  ASSERT_TRUE(Save());
  EXPECT_FALSE(Save());
  EXPECT_EQ(GetReason(), "The message was saved already");
  EXPECT_FALSE(AddRoom());
  EXPECT_EQ(GetReason(), "The message was saved already");
}

TEST_F(CmsEncryptingTest, StartsOverWhenCreatedAgain) {
  ASSERT_TRUE(AddRoom());
  ASSERT_TRUE(Save());
  ASSERT_TRUE(message_.CreateEnvelopedData(CipherAlgorithm::AES256CBC));
  ASSERT_TRUE(AddRoom());
  EXPECT_TRUE(Save()) << GetReason();
}

TEST_F(CmsEncryptingTest, ReportsTheSystemsReasonOnAFullDisk) {
  ASSERT_TRUE(AddRoom());
  EXPECT_FALSE(message_.Save(CMSMsg::Format::BERStream, plain_, File("/dev/full")));
  EXPECT_EQ(GetReason(), "No space left on device");
}

TEST_F(CmsEncryptingTest, FailsWhenTheSourceIsCutWhileItIsRead) {
  ASSERT_TRUE(AddRoom());
  EXPECT_FALSE(message_.Save(CMSMsg::Format::BERStream, plain_, plain_));
  EXPECT_EQ(GetReason(), "The file changed while it was read");
}

TEST_F(CmsEncryptingTest, HasNoContentBeforeItIsSaved) {
  EXPECT_EQ(ContentOf(message_), "No message was loaded");
  EXPECT_EQ(ReasonOf(message_.Verify()), "The message is not a signed one");
  EXPECT_TRUE(IsQueueEmpty());
}

}  // namespace
}  // namespace SecurityTest

#include <gtest/gtest.h>

#include "tests/security/cmstest.h"

// Messages of ours, read by ourselves: every size around the borders of pieces and blocks.
namespace SecurityTest {
namespace {

constexpr std::size_t kPiece = 256 * 1024;

class CmsRoundTripTest : public testing::TestWithParam<std::size_t> {
 protected:
  ScratchDirectory scratch_;
};

TEST_P(CmsRoundTripTest, SignedContentComesBackVerified) {
  const std::string bytes = MakeBytes(GetParam());
  ASSERT_TRUE(SignFile(scratch_.Make("plain", bytes), scratch_.File("signed"))) << GetReason();
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch_.File("signed"))) << GetReason();
  EXPECT_EQ(message.GetType(), CMSMsg::Type::SignedData);
  EXPECT_TRUE(message.Verify()) << GetReason();
  EXPECT_TRUE(message.GetContent(scratch_.File("out"))) << GetReason();
  EXPECT_EQ(scratch_.Read("out"), bytes);
  EXPECT_EQ(ContentOf(message), bytes);
}

TEST_P(CmsRoundTripTest, EnvelopedContentComesBackWithThePrivateKey) {
  const std::string bytes = MakeBytes(GetParam());
  ASSERT_TRUE(EnvelopeFile(scratch_.Make("plain", bytes), scratch_.File("enveloped"))) << GetReason();
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch_.File("enveloped"))) << GetReason();
  EXPECT_EQ(message.GetType(), CMSMsg::Type::EnvelopedData);
  ASSERT_TRUE(message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
  EXPECT_TRUE(message.GetContent(scratch_.File("out"))) << GetReason();
  EXPECT_EQ(scratch_.Read("out"), bytes);
  EXPECT_EQ(ContentOf(message), bytes) << "a second time, into memory";
}

TEST_P(CmsRoundTripTest, EnvelopedContentComesBackWithTheContentKey) {
  const std::string bytes = MakeBytes(GetParam());
  ASSERT_TRUE(EnvelopeFile(scratch_.Make("plain", bytes), scratch_.File("enveloped"))) << GetReason();
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch_.File("enveloped"))) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  ASSERT_EQ(recipients.GetCount(), 1U);
  const std::string key = Room().key.Decrypt(ToString(recipients.Get(0)->encryptedKey));
  ASSERT_TRUE(message.SetContentKey(ToText(CryptStand::ToBase64(key)))) << GetReason();
  EXPECT_EQ(ContentOf(message), bytes);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CmsRoundTripTest,
                         testing::Values(0, 1, 15, 16, 17, 127, 128, 4096, kPiece - 16, kPiece - 1, kPiece,
                                         kPiece + 1, kPiece + 16, 3 * kPiece + 12345));

}  // namespace
}  // namespace SecurityTest

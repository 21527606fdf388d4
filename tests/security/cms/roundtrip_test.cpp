#include <gtest/gtest.h>

#include "security/cms/chunk.h"
#include "tests/security/cms/fixture.h"

// Messages of ours, read by ourselves: every size around the borders of pieces and blocks.
namespace SecurityTest {
namespace {

constexpr std::size_t kPiece = OruOssSec::kWritePiece;

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

// The head of a signed message takes 67 octets, headers of segments 5: borders of pieces lie a little below
// those of the content.
INSTANTIATE_TEST_SUITE_P(Sizes, CmsRoundTripTest,
                         testing::Values(0, 1, 15, 16, 17, 127, 128, 4096, kPiece - 128, kPiece - 66,
                                         kPiece - 65, kPiece - 64, kPiece - 16, kPiece - 5, kPiece - 1,
                                         kPiece, kPiece + 1, kPiece + 16, 2 * kPiece, 5 * kPiece + 12345));

/// Octets of the first segment of a message that has more than one.
std::size_t GetFirstSegment(const std::string& bytes) {
  const std::size_t place = bytes.find("\x80\x04\x83");
  std::size_t size = 0;
  for (std::size_t i = 0; i < 3; ++i) size = size * 256 + static_cast<unsigned char>(bytes[place + 3 + i]);
  return size;
}

TEST(CmsRoundTripBorderTest, EverySizeAroundAFullSegmentComesBack) {
  ScratchDirectory scratch;
  const std::string bytes = MakeBytes(2 * kPiece);
  ASSERT_TRUE(EnvelopeFile(scratch.Make("plain", bytes), scratch.File("enveloped"))) << GetReason();
  const std::size_t first = GetFirstSegment(scratch.Read("enveloped"));
  ASSERT_LT(first, kPiece);
  ASSERT_GT(first, kPiece - 1000);
  for (std::size_t size = first - 20; size <= first + 20; ++size) {
    const std::string content = bytes.substr(0, size);
    ASSERT_TRUE(EnvelopeFile(scratch.Make("plain", content), scratch.File("enveloped"))) << GetReason();
    CMSMsg message;
    ASSERT_TRUE(message.Load(scratch.File("enveloped"))) << size << GetReason();
    ASSERT_TRUE(message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
    ASSERT_EQ(ContentOf(message), content) << size;
  }
}

/// Checks that elements of an octet string begin at every multiple of a piece that the content reaches.
void ExpectSegmentsAtPieces(const std::string& bytes, std::size_t size) {
  ASSERT_GT(bytes.size(), size);
  for (std::size_t offset = kPiece; offset + kPiece < size; offset += kPiece) {
    EXPECT_EQ(CryptStand::ToHex(bytes.substr(offset, 5), true), "048301FFFB") << offset;
  }
}

TEST(CmsRoundTripBorderTest, SegmentsFillPiecesOfTheFile) {
  ScratchDirectory scratch;
  const std::size_t size = 5 * kPiece;
  ASSERT_TRUE(SignFile(scratch.Make("plain", MakeBytes(size)), scratch.File("signed")));
  ExpectSegmentsAtPieces(scratch.Read("signed"), size);
  ASSERT_TRUE(EnvelopeFile(scratch.File("plain"), scratch.File("enveloped")));
  ExpectSegmentsAtPieces(scratch.Read("enveloped"), size);
}

}  // namespace
}  // namespace SecurityTest

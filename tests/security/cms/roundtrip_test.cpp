// Messages that we write and read again: every size around the borders of chunks and blocks.
#include <gtest/gtest.h>

#include "security/cms/sink.h"
#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

constexpr std::size_t kChunk = OruOssSec::kWriteChunk;

class CmsRoundTripTest : public testing::TestWithParam<std::size_t> {
 protected:
  ScratchDirectory scratch_;
};

TEST_P(CmsRoundTripTest, RestoresAndVerifiesSignedContent) {
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

TEST_P(CmsRoundTripTest, RestoresEnvelopedContentWithThePrivateKey) {
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

TEST_P(CmsRoundTripTest, RestoresEnvelopedContentWithTheContentKey) {
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

// The head of a signed message takes 67 octets, headers of segments 5: borders of chunks are a little below
// those of the content.
INSTANTIATE_TEST_SUITE_P(Sizes, CmsRoundTripTest,
                         testing::Values(0, 1, 15, 16, 17, 127, 128, 4096, kChunk - 128, kChunk - 66,
                                         kChunk - 65, kChunk - 64, kChunk - 16, kChunk - 5, kChunk - 1,
                                         kChunk, kChunk + 1, kChunk + 16, 2 * kChunk, 5 * kChunk + 12345));

/// Octets of the first segment of a message that has more than one.
std::size_t GetFirstSegment(const std::string& bytes) {
  const std::size_t place = bytes.find("\x80\x04\x83");
  std::size_t size = 0;
  for (std::size_t i = 0; i < 3; ++i) size = size * 256 + static_cast<unsigned char>(bytes[place + 3 + i]);
  return size;
}

TEST(CmsRoundTripBorderTest, RestoresEverySizeAroundAFullSegment) {
  ScratchDirectory scratch;
  const std::string bytes = MakeBytes(2 * kChunk);
  ASSERT_TRUE(EnvelopeFile(scratch.Make("plain", bytes), scratch.File("enveloped"))) << GetReason();
  const std::size_t first = GetFirstSegment(scratch.Read("enveloped"));
  ASSERT_LT(first, kChunk);
  ASSERT_GT(first, kChunk - 1000);
  for (std::size_t size = first - 20; size <= first + 20; ++size) {
    const std::string content = bytes.substr(0, size);
    ASSERT_TRUE(EnvelopeFile(scratch.Make("plain", content), scratch.File("enveloped"))) << GetReason();
    CMSMsg message;
    ASSERT_TRUE(message.Load(scratch.File("enveloped"))) << size << GetReason();
    ASSERT_TRUE(message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
    ASSERT_EQ(ContentOf(message), content) << size;
  }
}

/// Checks that elements of an octet string begin at every multiple of a chunk that the content reaches.
void ExpectSegmentsAtChunks(const std::string& bytes, std::size_t size) {
  ASSERT_GT(bytes.size(), size);
  for (std::size_t offset = kChunk; offset + kChunk < size; offset += kChunk) {
    EXPECT_EQ(CryptStand::ToHex(bytes.substr(offset, 5), true), "048301FFFB") << offset;
  }
}

TEST(CmsRoundTripBorderTest, WritesSegmentsThatFillChunksOfTheFile) {
  ScratchDirectory scratch;
  const std::size_t size = 5 * kChunk;
  ASSERT_TRUE(SignFile(scratch.Make("plain", MakeBytes(size)), scratch.File("signed")));
  ExpectSegmentsAtChunks(scratch.Read("signed"), size);
  ASSERT_TRUE(EnvelopeFile(scratch.File("plain"), scratch.File("enveloped")));
  ExpectSegmentsAtChunks(scratch.Read("enveloped"), size);
}

}  // namespace
}  // namespace SecurityTest

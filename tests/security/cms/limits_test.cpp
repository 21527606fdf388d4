#include <gtest/gtest.h>

#include "tests/security/signed_builder.h"

namespace SecurityTest {
namespace {

using OruOssSec::CMSLimits;
using LoadResult = CMSMsg::LoadResult;

/// A message at the limit is read; one beyond it is refused with a reason, but never taken for plain content.
class CmsLimitsTest : public testing::Test {
 protected:
  void ExpectLoaded(const std::string& bytes) {
    EXPECT_EQ(message_.TryLoad(scratch_.Make("message", bytes)), LoadResult::Loaded) << GetReason();
  }
  void ExpectRefused(const std::string& bytes, const char* reason) {
    EXPECT_EQ(message_.TryLoad(scratch_.Make("message", bytes)), LoadResult::Unreadable);
    EXPECT_EQ(GetReason(), reason);
    EXPECT_FALSE(LoadBytes(message_, bytes));
    EXPECT_EQ(GetReason(), reason);
  }

  ScratchDirectory scratch_;
  CMSMsg message_;
};

BuiltMessage WithSigners(std::size_t count) {
  BuiltMessage message = MessageOf(BuiltSigner::For("content"));
  message.signers.resize(count, message.signers[0]);
  return message;
}

TEST_F(CmsLimitsTest, LimitsTheSignersOfAMessage) {
  ExpectLoaded(WithSigners(CMSLimits::kSigners).Encode());
  EXPECT_TRUE(message_.Verify()) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message_.GetSigners(signers)) << GetReason();
  EXPECT_EQ(signers.GetCount(), CMSLimits::kSigners);
  ExpectRefused(WithSigners(CMSLimits::kSigners + 1).Encode(), "The message has too many signers");
}

BuiltMessage WithCertificates(std::size_t count) {
  BuiltMessage message = MessageOf(BuiltSigner::For("content"));
  message.certificates.resize(count, Root().certificate);
  return message;
}

TEST_F(CmsLimitsTest, LimitsTheCertificatesOfAMessage) {
  ExpectLoaded(WithCertificates(CMSLimits::kCertificates).Encode());
  EXPECT_TRUE(message_.Verify()) << GetReason();
  ExpectRefused(WithCertificates(CMSLimits::kCertificates + 1).Encode(),
                "The message has too many certificates");
}

BuiltMessage WithAttributes(std::size_t count) {
  BuiltSigner signer = BuiltSigner::For("content");
  for (std::size_t i = signer.attributes.size(); i < count; ++i) {
    const std::string oid = Hex("2A03") + static_cast<char>(0x81 + (i >> 7)) + static_cast<char>(i & 0x7F);
    signer.Add(Attribute(Tlv(0x06, oid), Tlv(0x0C, "text")));
  }
  return MessageOf(signer);
}

TEST_F(CmsLimitsTest, LimitsTheSignedAttributesOfASigner) {
  ExpectLoaded(WithAttributes(CMSLimits::kAttributes).Encode());
  EXPECT_TRUE(message_.Verify()) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message_.GetSigners(signers)) << GetReason();
  EXPECT_EQ(signers.Get(0)->signedAttributes.GetCount(), CMSLimits::kAttributes);
  ExpectRefused(WithAttributes(CMSLimits::kAttributes + 1).Encode(),
                "A signer of the message has too many signed attributes");
}

TEST_F(CmsLimitsTest, LimitsTheSignedAttributesOfEverySigner) {
  BuiltMessage message = WithAttributes(CMSLimits::kAttributes + 1);
  message.signers.insert(message.signers.begin(), BuiltSigner::For("content"));
  ExpectRefused(message.Encode(), "A signer of the message has too many signed attributes");
}

std::string WithRecipients(std::size_t count) {
  const std::string name = EncodeName(X509_get_subject_name(Root().certificate.Get0()));
  const std::string one = Tlv(0x30, Hex("020100") + Tlv(0x30, name + Hex("020101")) +
                                        Tlv(0x30, Hex("06092A864886F70D010101 0500")) + Tlv(0x04, "key"));
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += one;
  const std::string cipher = Tlv(0x30, Hex("060960864801650304012A") + Tlv(0x04, std::string(16, 'i')));
  const std::string content = Tlv(0x30, kDataOid + cipher + Tlv(0x80, std::string(16, 'x')));
  return Tlv(0x30,
             Hex("06092A864886F70D010703") + Tlv(0xA0, Tlv(0x30, Hex("020100") + Tlv(0x31, all) + content)));
}

TEST_F(CmsLimitsTest, LimitsRecipientsOfALoadedMessageOnlyByItsSize) {
  ExpectLoaded(WithRecipients(CMSLimits::kRecipients + 1));
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  ASSERT_TRUE(message_.GetRecipients(recipients)) << GetReason();
  EXPECT_EQ(recipients.GetCount(), CMSLimits::kRecipients + 1);
  const std::string bytes = WithRecipients(CMSLimits::kSkeleton / 16);
  EXPECT_EQ(message_.TryLoad(scratch_.Make("message", bytes)), LoadResult::LargeEnvelope);
  EXPECT_EQ(GetReason(), "The message without its content is too large");
}

// What was written can be read again.
TEST_F(CmsLimitsTest, LimitsTheRecipientsOfANewMessage) {
  const OruOssSec::Certificate room = ToCertificate(Room().certificate);
  ASSERT_TRUE(message_.CreateEnvelopedData(OruOssSec::CipherAlgorithm::AES256CBC)) << GetReason();
  for (std::uint32_t i = 0; i < CMSLimits::kRecipients; ++i) ASSERT_TRUE(message_.AddRecipient(room)) << i;
  EXPECT_FALSE(message_.AddRecipient(room));
  EXPECT_EQ(GetReason(), "The message has too many recipients");
}

TEST_F(CmsLimitsTest, LimitsTheSignedAttributesOfANewMessage) {
  const File plain = scratch_.Make("plain", "x");
  const File target = scratch_.File("signed");
  const OruGuiBase::DateTime time = At(2026, 11, 22);
  KVMap attributes;
  while (attributes.GetCount() < CMSLimits::kAttributes - 3) {
    attributes.Put(ToText("1.2.3." + std::to_string(attributes.GetCount())), "text");
  }
  ASSERT_TRUE(SignFile(plain, target, attributes, &time)) << GetReason();
  EXPECT_EQ(message_.TryLoad(target), LoadResult::Loaded) << GetReason();
  attributes.Put("1.2.3.999", "text");
  EXPECT_FALSE(SignFile(plain, target, attributes, &time));
  EXPECT_EQ(GetReason(), "The signer has too many signed attributes");
}

// This bounds the memory that a message takes.
TEST_F(CmsLimitsTest, LimitsTheSizeOfAMessageWithoutItsContent) {
  BuiltSigner signer = BuiltSigner::For("content");
  signer.Add(Attribute(Tlv(0x06, Hex("2A0304")), Tlv(0x0C, std::string(CMSLimits::kSkeleton, 'x'))));
  ExpectRefused(MessageOf(signer).Encode(), "The message without its content is too large");
  ExpectLoaded(MessageOf(BuiltSigner::For(std::string(CMSLimits::kSkeleton, 'x')),
                         std::string(CMSLimits::kSkeleton, 'x'))
                   .Encode());
}

}  // namespace
}  // namespace SecurityTest

#include <gtest/gtest.h>

#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

using Recipients = OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient>;

const std::string kName = Tlv(0x30, Tlv(0x31, Tlv(0x30, Hex("0603550403") + Tlv(0x0C, "Issuer"))));
const std::string kRsa = Tlv(0x30, Hex("06092A864886F70D010101 0500"));

std::string Recipient(const std::string& serial, const std::string& name = kName,
                      const std::string& key = Tlv(0x04, "key")) {
  return Tlv(0x30, Hex("020100") + Tlv(0x30, name + Tlv(0x02, serial)) + kRsa + key);
}

std::string Envelope(const std::string& recipients, const std::string& originator = "") {
  const std::string cipher = Tlv(0x30, Hex("060960864801650304012A") + Tlv(0x04, std::string(16, 'i')));
  const std::string content =
      Tlv(0x30, Hex("06092A864886F70D010701") + cipher + Tlv(0x80, std::string(16, 'x')));
  return Tlv(0x30, Hex("06092A864886F70D010703") +
                       Tlv(0xA0, Tlv(0x30, Hex("020100") + originator + recipients + content)));
}

bool Load(CMSMsg& message, const std::string& bytes) {
  return message.Load(ToText(CryptStand::ToBase64(bytes)));
}

struct SerialRow {
  const char* octets;
  const char* text;
};

TEST(CmsRecipientsTest, SerialNumberIsUpperCaseHexadecimalWithoutSignOctet) {
  const SerialRow rows[] = {
      {"0A3F", "0A3F"},
      {"008F01", "8F01"},
      {"01", "01"},
      {"00", "00"},
      {"7FFFFF", "7FFFFF"},
      {"00FF", "FF"},
      {"00abcdefabcdefabcdefabcdefabcdefabcdef", "ABCDEFABCDEFABCDEFABCDEFABCDEFABCDEF"}};
  for (const SerialRow& row : rows) {
    CMSMsg message;
    ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient(Hex(row.octets)))))) << GetReason();
    Recipients recipients;
    ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
    EXPECT_EQ(ToString(recipients.Get(0)->serial), row.text);
  }
}

TEST(CmsRecipientsTest, EmptySetIsNoFailure) {
  for (const std::string& set : {Tlv(0x31, ""), Open(0x31, "")}) {
    CMSMsg message;
    ASSERT_TRUE(Load(message, Envelope(set))) << GetReason();
    EXPECT_EQ(message.GetType(), CMSMsg::Type::EnvelopedData);
    Recipients recipients;
    EXPECT_TRUE(message.GetRecipients(recipients)) << GetReason();
    EXPECT_TRUE(recipients.IsEmpty());
    EXPECT_FALSE(message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
    EXPECT_EQ(GetReason(), "The message is not addressed to the certificate");
  }
}

TEST(CmsRecipientsTest, RecipientsComeInTheirOrder) {
  CMSMsg message;
  ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient("\x03") + Recipient("\x01") + Recipient("\x02")))));
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  ASSERT_EQ(recipients.GetCount(), 3U);
  EXPECT_EQ(ToString(recipients.Get(0)->serial), "03");
  EXPECT_EQ(ToString(recipients.Get(1)->serial), "01");
  EXPECT_EQ(ToString(recipients.Get(2)->serial), "02");
}

TEST(CmsRecipientsTest, QueueIsFilledAgain) {
  CMSMsg message;
  ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient("\x03")))));
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients));
  ASSERT_TRUE(message.GetRecipients(recipients));
  EXPECT_EQ(recipients.GetCount(), 1U);
}

TEST(CmsRecipientsTest, OriginatorIsPassedOver) {
  CMSMsg message;
  ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient("\x03")), Tlv(0xA0, "")))) << GetReason();
  Recipients recipients;
  EXPECT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_EQ(recipients.GetCount(), 1U);
}

TEST(CmsRecipientsTest, EncryptedKeyInSegmentsIsPutTogether) {
  CMSMsg message;
  const std::string key = Open(0x24, Tlv(0x04, "encrypted ") + Tlv(0x04, "key"));
  ASSERT_TRUE(Load(message, Envelope(Open(0x31, Recipient("\x03", kName, key))))) << GetReason();
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_EQ(ToString(recipients.Get(0)->encryptedKey), "encrypted key");
}

TEST(CmsRecipientsTest, EmptyEncryptedKeyIsDeliveredEmpty) {
  CMSMsg message;
  ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient("\x03", kName, Tlv(0x04, "")))))) << GetReason();
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_TRUE(recipients.Get(0)->encryptedKey.IsEmpty());
}

TEST(CmsRecipientsTest, EmptyIssuerIsEmptyText) {
  CMSMsg message;
  ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient("\x03", Tlv(0x30, "")))))) << GetReason();
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_TRUE(recipients.Get(0)->issuer.IsEmpty());
}

TEST(CmsRecipientsTest, OneRecipientOfAnotherTypeFailsTheWhole) {
  const std::string keyId = Tlv(0x30, Hex("020102") + Tlv(0x80, "identifier") + kRsa + Tlv(0x04, "key"));
  CMSMsg message;
  ASSERT_TRUE(Load(message, Envelope(Tlv(0x31, Recipient("\x03") + keyId)))) << GetReason();
  Recipients recipients;
  EXPECT_FALSE(message.GetRecipients(recipients));
  EXPECT_EQ(GetReason(), "A recipient of the message is not named by issuer and serial number");
  EXPECT_TRUE(recipients.IsEmpty());
}

TEST(CmsRecipientsTest, SignedMessageHasNone) {
  ScratchDirectory scratch;
  ASSERT_TRUE(SignFile(scratch.Make("plain", "x"), scratch.File("signed")));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch.File("signed")));
  Recipients recipients;
  EXPECT_FALSE(message.GetRecipients(recipients));
  EXPECT_EQ(GetReason(), "The message is not an enveloped one");
}

}  // namespace
}  // namespace SecurityTest

#include <gtest/gtest.h>

#include "tests/security/signed_builder.h"

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

struct SerialRow {
  const char* octets;
  const char* text;
};

TEST(CmsRecipientsTest, WritesSerialNumbersInUpperCaseHexadecimalWithoutSignOctet) {
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
    ASSERT_TRUE(LoadBytes(message, Envelope(Tlv(0x31, Recipient(Hex(row.octets)))))) << GetReason();
    Recipients recipients;
    ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
    EXPECT_EQ(ToString(recipients.Get(0)->serial), row.text);
  }
}

TEST(CmsRecipientsTest, AcceptsAnEmptySet) {
  for (const std::string& set : {Tlv(0x31, ""), Open(0x31, "")}) {
    CMSMsg message;
    ASSERT_TRUE(LoadBytes(message, Envelope(set))) << GetReason();
    EXPECT_EQ(message.GetType(), CMSMsg::Type::EnvelopedData);
    Recipients recipients;
    EXPECT_TRUE(message.GetRecipients(recipients)) << GetReason();
    EXPECT_TRUE(recipients.IsEmpty());
    EXPECT_FALSE(message.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key)));
    EXPECT_EQ(GetReason(), "The message is not addressed to the certificate");
  }
}

TEST(CmsRecipientsTest, KeepsTheOrderOfTheMessage) {
  CMSMsg message;
  ASSERT_TRUE(
      LoadBytes(message, Envelope(Tlv(0x31, Recipient("\x03") + Recipient("\x01") + Recipient("\x02")))));
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  ASSERT_EQ(recipients.GetCount(), 3U);
  EXPECT_EQ(ToString(recipients.Get(0)->serial), "03");
  EXPECT_EQ(ToString(recipients.Get(1)->serial), "01");
  EXPECT_EQ(ToString(recipients.Get(2)->serial), "02");
}

TEST(CmsRecipientsTest, ReplacesTheEntriesOfTheQueue) {
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, Envelope(Tlv(0x31, Recipient("\x03")))));
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients));
  ASSERT_TRUE(message.GetRecipients(recipients));
  EXPECT_EQ(recipients.GetCount(), 1U);
}

TEST(CmsRecipientsTest, SkipsTheOriginator) {
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, Envelope(Tlv(0x31, Recipient("\x03")), Tlv(0xA0, "")))) << GetReason();
  Recipients recipients;
  EXPECT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_EQ(recipients.GetCount(), 1U);
}

TEST(CmsRecipientsTest, JoinsAnEncryptedKeyInSegments) {
  CMSMsg message;
  const std::string key = Open(0x24, Tlv(0x04, "encrypted ") + Tlv(0x04, "key"));
  ASSERT_TRUE(LoadBytes(message, Envelope(Open(0x31, Recipient("\x03", kName, key))))) << GetReason();
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_EQ(ToString(recipients.Get(0)->encryptedKey), "encrypted key");
}

TEST(CmsRecipientsTest, DeliversAnEmptyEncryptedKey) {
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, Envelope(Tlv(0x31, Recipient("\x03", kName, Tlv(0x04, ""))))))
      << GetReason();
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_TRUE(recipients.Get(0)->encryptedKey.IsEmpty());
}

TEST(CmsRecipientsTest, WritesAnEmptyIssuerAsAnEmptyString) {
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, Envelope(Tlv(0x31, Recipient("\x03", Tlv(0x30, "")))))) << GetReason();
  Recipients recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  EXPECT_TRUE(recipients.Get(0)->issuer.IsEmpty());
}

TEST(CmsRecipientsTest, FailsWhenOneRecipientIsOfAnotherType) {
  const std::string keyId = Tlv(0x30, Hex("020102") + Tlv(0x80, "identifier") + kRsa + Tlv(0x04, "key"));
  CMSMsg message;
  ASSERT_TRUE(LoadBytes(message, Envelope(Tlv(0x31, Recipient("\x03") + keyId)))) << GetReason();
  Recipients recipients;
  EXPECT_FALSE(message.GetRecipients(recipients));
  EXPECT_EQ(GetReason(), "A recipient of the message is not named by issuer and serial number");
  EXPECT_TRUE(recipients.IsEmpty());
}

TEST(CmsRecipientsTest, FailsForASignedMessage) {
  ScratchDirectory scratch;
  ASSERT_TRUE(SignFile(scratch.Make("plain", "x"), scratch.File("signed")));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch.File("signed")));
  Recipients recipients;
  EXPECT_FALSE(message.GetRecipients(recipients));
  EXPECT_EQ(GetReason(), "The message is not an enveloped one");
}

using Signers = OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner>;

const std::string kOid = Hex("06032A0304");  // 1.2.3.4

bool Read(const BuiltMessage& built, Signers& signers) {
  CMSMsg message;
  if (!LoadBytes(message, built.Encode())) return false;
  const bool read = message.GetSigners(signers);
  EXPECT_TRUE(IsQueueEmpty());
  return read;
}

struct ValueRow {
  const char* why;
  std::string value;
  const char* text;
};

TEST(CmsSignersTest, WritesStringsInUTF8AndOtherValuesInHexadecimal) {
  const ValueRow rows[] = {
      {"UTF8String", Tlv(0x0C, "Gr\xC3\xBC\xC3\x9F"), "Gr\xC3\xBC\xC3\x9F"},
      {"empty UTF8String", Tlv(0x0C, ""), ""},
      {"PrintableString", Tlv(0x13, "QOB.1"), "QOB.1"},
      {"IA5String", Tlv(0x16, "a@b"), "a@b"},
      {"NumericString", Tlv(0x12, "12 3"), "12 3"},
      {"VisibleString", Tlv(0x1A, "visible"), "visible"},
      {"TeletexString", Tlv(0x14, "\xFC"), "\xC3\xBC"},
      {"BMPString", Tlv(0x1E, Hex("00FC 20AC")), "\xC3\xBC\xE2\x82\xAC"},
      {"UniversalString", Tlv(0x1C, Hex("0001F600")), "\xF0\x9F\x98\x80"},
      {"OCTET STRING", Tlv(0x04, Hex("00AB0f")), "00AB0F"},
      {"empty OCTET STRING", Tlv(0x04, ""), ""},
      {"INTEGER", Tlv(0x02, Hex("00FF")), "00FF"},
      {"negative INTEGER", Tlv(0x02, Hex("80")), "80"},
      {"OBJECT IDENTIFIER", Hex("06022A03"), "2A03"},
      {"BOOLEAN", Hex("0101FF"), "FF"},
      {"NULL", Hex("0500"), ""},
      {"SEQUENCE", Tlv(0x30, Hex("020101")), "020101"},
      {"time", Tlv(0x17, "100601120000Z"), "3130303630313132303030305A"},
      {"context tag", Hex("8002ABCD"), "ABCD"},
  };
  for (const ValueRow& row : rows) {
    Signers signers;
    BuiltSigner signer = BuiltSigner::For("content");
    signer.Add(Attribute(kOid, row.value));
    ASSERT_TRUE(Read(MessageOf(signer), signers)) << row.why << GetReason();
    const std::string text = ToString(signers.Get(0)->signedAttributes.Get("1.2.3.4").AsString());
    EXPECT_EQ(text, row.text) << row.why;
  }
}

TEST(CmsSignersTest, LeavesOutTheHeaderOfALongValue) {
  Signers signers;
  BuiltSigner signer = BuiltSigner::For("content");
  signer.Add(Attribute(kOid, Tlv(0x04, std::string(300, '\x11'))));
  ASSERT_TRUE(Read(MessageOf(signer), signers)) << GetReason();
  EXPECT_EQ(ToString(signers.Get(0)->signedAttributes.Get("1.2.3.4").AsString()), std::string(600, '1'));
}

TEST(CmsSignersTest, ListsAttributesByTheirDottedOIDs) {
  Signers signers;
  ASSERT_TRUE(Read(MessageOf(BuiltSigner::For("content")), signers)) << GetReason();
  const KVMap& attributes = signers.Get(0)->signedAttributes;
  EXPECT_EQ(attributes.GetCount(), 2U);
  EXPECT_EQ(ToString(attributes.Get("1.2.840.113549.1.9.3").AsString()), "2A864886F70D010701");
  EXPECT_EQ(ToString(attributes.Get("1.2.840.113549.1.9.4").AsString()),
            CryptStand::ToHex(Digest("SHA512", "content"), true));
}

TEST(CmsSignersTest, LeavesOutAttributesOfSeveralValuesOrNone) {
  for (const std::string& values : {Tlv(0x0C, "a") + Tlv(0x0C, "b"), std::string()}) {
    Signers signers;
    BuiltSigner signer = BuiltSigner::For("content");
    signer.Add(Attribute(kOid, values));
    ASSERT_TRUE(Read(MessageOf(signer), signers)) << GetReason();
    EXPECT_TRUE(signers.Get(0)->signedAttributes.Get("1.2.3.4").IsNil());
  }
}

TEST(CmsSignersTest, FailsForAnAttributeThatOccursTwice) {
  Signers signers;
  BuiltSigner signer = BuiltSigner::For("content");
  signer.Add(Attribute(kOid, Tlv(0x0C, "a"))).Add(Attribute(kOid, Tlv(0x0C, "b")));
  EXPECT_FALSE(Read(MessageOf(signer), signers));
  EXPECT_EQ(GetReason(), "A signed attribute occurs twice");
  EXPECT_TRUE(signers.IsEmpty());
}

TEST(CmsSignersTest, FailsForAnAttributeThatOccursTwiceWithAnyNumberOfValues) {
  const std::string one = Tlv(0x0C, "a");
  const std::pair<std::string, std::string> rows[] = {
      {one, ""}, {"", one}, {one, one + Tlv(0x0C, "b")}, {one + Tlv(0x0C, "b"), one}, {"", ""}, {one, one}};
  for (const auto& [first, second] : rows) {
    Signers signers;
    BuiltSigner signer = BuiltSigner::For("content");
    signer.Add(Attribute(kOid, first)).Add(Attribute(kOid, second));
    EXPECT_FALSE(Read(MessageOf(signer), signers)) << first.size() << " " << second.size();
    EXPECT_EQ(GetReason(), "A signed attribute occurs twice");
    EXPECT_TRUE(signers.IsEmpty());
  }
}

TEST(CmsSignersTest, FailsForAStringThatIsInvalidInItsType) {
  for (const std::string& value : {Tlv(0x0C, "\xFF"), Tlv(0x1E, "odd")}) {
    Signers signers;
    BuiltSigner signer = BuiltSigner::For("content");
    signer.Add(Attribute(kOid, value));
    LeaveStaleReason();
    EXPECT_FALSE(Read(MessageOf(signer), signers));
    EXPECT_NE(GetReason(), "stale");
    EXPECT_NE(OruGuiBase::GetLastError(), 0U);
  }
}

TEST(CmsSignersTest, ReadsTheSigningTimeInUTC) {
  struct {
    std::string value;
    OruGuiBase::DateTime time;
  } const rows[] = {
      {Tlv(0x17, "240229235958Z"), At(2024, 2, 29, 23, 59, 58)},
      {Tlv(0x17, "500101000000Z"), At(1950, 1, 1)},
      {Tlv(0x17, "491231000000Z"), At(2049, 12, 31)},
      {Tlv(0x18, "20501231010203Z"), At(2050, 12, 31, 1, 2, 3)},
      {Tlv(0x17, "240301003000+0100"), At(2024, 2, 29, 23, 30)},
  };
  for (const auto& row : rows) {
    Signers signers;
    BuiltSigner signer = BuiltSigner::For("content");
    signer.Add(Attribute(kSigningTimeOid, row.value));
    ASSERT_TRUE(Read(MessageOf(signer), signers)) << GetReason();
    EXPECT_EQ(signers.Get(0)->signingTime, row.time) << row.value;
  }
}

TEST(CmsSignersTest, FailsForAnUnreadableSigningTime) {
  Signers signers;
  BuiltSigner signer = BuiltSigner::For("content");
  signer.Add(Attribute(kSigningTimeOid, Tlv(0x17, "240229")));
  EXPECT_FALSE(Read(MessageOf(signer), signers));
  EXPECT_NE(OruGuiBase::GetLastError(), 0U);
}

TEST(CmsSignersTest, LeavesAMissingCertificateEmpty) {
  Signers signers;
  BuiltMessage built = MessageOf(BuiltSigner::For("content"));
  built.certificates = {Room().certificate};
  ASSERT_TRUE(Read(built, signers)) << GetReason();
  EXPECT_TRUE(signers.Get(0)->certificate.IsEmpty());
}

TEST(CmsSignersTest, KeepsTheCertificateAfterTheMessageIsGone) {
  Signers signers;
  ASSERT_TRUE(Read(MessageOf(BuiltSigner::For("content")), signers));
  AnsiStr subject;
  EXPECT_TRUE(signers.Get(0)->certificate.GetSubject(subject));
  EXPECT_EQ(ToString(subject), Signer().certificate.GetSubject());
}

TEST(CmsSignersTest, ReadsNoSignersFromAMessageWithoutAny) {
  Signers signers;
  BuiltMessage built;
  ASSERT_TRUE(Read(built, signers)) << GetReason();
  EXPECT_TRUE(signers.IsEmpty());
}

TEST(CmsSignersTest, FailsForAnEnvelopedMessage) {
  ScratchDirectory scratch;
  ASSERT_TRUE(EnvelopeFile(scratch.Make("plain", "x"), scratch.File("enveloped")));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch.File("enveloped")));
  Signers signers;
  EXPECT_EQ(ReasonOf(message.GetSigners(signers)), "The message is not a signed one");
}

}  // namespace
}  // namespace SecurityTest

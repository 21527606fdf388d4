#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"
#include "tests/security/signed_builder.h"

namespace SecurityTest {
namespace {

std::string TypeOf(const std::string& oid) {
  CMSMsg message;
  const std::string bytes = Tlv(0x30, Tlv(0x06, Hex(oid)) + Tlv(0xA0, Tlv(0x30, "")));
  return message.Load(ToText(CryptStand::ToBase64(bytes))) ? ToString(message.GetTypeStr()) : GetReason();
}

TEST(CmsLoadTest, NamesUnknownTypesByTheirDottedOID) {
  EXPECT_EQ(TypeOf("2A864886F70D010704"), "1.2.840.113549.1.7.4");
  EXPECT_EQ(TypeOf("2A0304"), "1.2.3.4");
  EXPECT_EQ(TypeOf("883701"), "2.999.1");
  EXPECT_EQ(TypeOf("2A864886F70D010701"), "data");
  EXPECT_EQ(TypeOf("2A864886F70D010706"), "encryptedData");
  EXPECT_EQ(TypeOf("2A864886F70D0109100102"), "authenticatedData");
  EXPECT_EQ(TypeOf("2A864886F70D0109100109"), "compressedData");
  EXPECT_EQ(TypeOf("2A864886F70D0109100117"), "authEnvelopedData");
}

TEST(CmsLoadTest, RefusesATypeThatIsNoObjectIdentifier) {
  CMSMsg message;
  const std::string bytes = Tlv(0x30, Tlv(0x06, Hex("2A80")) + Tlv(0xA0, Tlv(0x30, "")));
  EXPECT_FALSE(message.Load(ToText(CryptStand::ToBase64(bytes))));
  EXPECT_NE(OruGuiBase::GetLastError(), 0U);
  EXPECT_TRUE(IsQueueEmpty());
}

TEST(CmsLoadTest, HasNoTypeAndDoesNothingWhenEmpty) {
  CMSMsg message;
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  const OruOssSec::CertStore store;
  const char* const kNone = "No message was loaded";
  EXPECT_EQ(message.GetType(), CMSMsg::Type::Unknown);
  EXPECT_TRUE(message.GetTypeStr().IsEmpty());
  EXPECT_EQ(ReasonOf(message.GetRecipients(recipients)), kNone);
  EXPECT_EQ(ReasonOf(message.GetSigners(signers)), kNone);
  EXPECT_EQ(ReasonOf(message.Verify()), kNone);
  EXPECT_EQ(ReasonOf(message.Verify(store)), kNone);
  EXPECT_EQ(ReasonOf(message.SetContentKey("AAAA")), kNone);
  EXPECT_EQ(ReasonOf(message.SetRecipientKey({}, OruOssSec::PrivateKey(nullptr))), kNone);
  EXPECT_EQ(ContentOf(message), kNone);
  const char* const kNotCreated = "No enveloped message was created";
  EXPECT_EQ(ReasonOf(message.AddRecipient(ToCertificate(Room().certificate))), kNotCreated);
  EXPECT_EQ(ReasonOf(message.Save(CMSMsg::Format::BERStream, File("a"), File("b"))), kNotCreated);
}

class CmsLoadFileTest : public testing::Test {
 protected:
  ScratchDirectory scratch_;
  CMSMsg message_;
};

TEST_F(CmsLoadFileTest, ReportsTheSystemsReasonForAMissingFile) {
  LeaveStaleReason();
  EXPECT_FALSE(message_.Load(scratch_.File("missing")));
  EXPECT_EQ(GetReason(), "No such file or directory");
}

TEST_F(CmsLoadFileTest, ReportsTheSystemsReasonForADirectory) {
  EXPECT_FALSE(message_.Load(File(ToText(scratch_.Path("").string()))));
  EXPECT_EQ(GetReason(), "Is a directory");
}

TEST_F(CmsLoadFileTest, IsNoMessageWhenTheFileIsEmpty) {
  EXPECT_FALSE(message_.Load(scratch_.Make("empty", "")));
  EXPECT_EQ(GetReason(), "This is not a CMS message");
}

TEST_F(CmsLoadFileTest, IsNoMessageWhenTheFileIsPEM) {
  EXPECT_FALSE(message_.Load(scratch_.Make("pem", "-----BEGIN CMS-----\n")));
  EXPECT_EQ(GetReason(), "This is not a CMS message");
}

TEST_F(CmsLoadFileTest, RefusesAByteAfterTheMessage) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", "x"), scratch_.File("signed")));
  EXPECT_FALSE(message_.Load(scratch_.Make("longer", scratch_.Read("signed") + '\0')));
  EXPECT_EQ(GetReason(), "The message is followed by other bytes");
}

// A caller that accepts other files too has to know which of the two it is.
TEST_F(CmsLoadFileTest, DistinguishesNoMessageFromUnreadable) {
  using Result = CMSMsg::LoadResult;
  ASSERT_TRUE(SignFile(scratch_.Make("plain", "x"), scratch_.File("signed")));
  const std::string whole = scratch_.Read("signed");
  EXPECT_EQ(message_.TryLoad(scratch_.File("signed")), Result::Loaded);
  for (const std::string& bytes : {std::string(), std::string("0"), std::string("plain"), whole + "x",
                                   whole.substr(0, whole.size() - 1), whole.substr(0, 40)}) {
    EXPECT_EQ(message_.TryLoad(scratch_.Make("other", bytes)), Result::NotAMessage) << GetReason();
  }
  EXPECT_EQ(message_.TryLoad(scratch_.File("missing")), Result::Unreadable);
  EXPECT_EQ(message_.TryLoad(File(ToText(scratch_.Path("").string()))), Result::Unreadable);
}

TEST_F(CmsLoadFileTest, IsNoMessageWhenOpenSSLRefusesIt) {
  const std::string fields = Hex("020101") + Tlv(0x31, Tlv(0x30, "x")) +
                             Tlv(0x30, kDataOid + Tlv(0xA0, Tlv(0x04, "content"))) + Tlv(0x31, "");
  const std::string bytes = Tlv(0x30, Hex("06092A864886F70D010702") + Tlv(0xA0, Tlv(0x30, fields)));
  EXPECT_EQ(message_.TryLoad(scratch_.Make("odd", bytes)), CMSMsg::LoadResult::NotAMessage);
}

TEST_F(CmsLoadFileTest, KeepsThePreviousMessageOnFailure) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", "x"), scratch_.File("signed")));
  ASSERT_TRUE(message_.Load(scratch_.File("signed")));
  EXPECT_FALSE(message_.Load(scratch_.File("plain")));
  EXPECT_EQ(ContentOf(message_), "x");
}

TEST_F(CmsLoadFileTest, ReplacesTheFirstMessageByTheSecond) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", "x"), scratch_.File("signed")));
  ASSERT_TRUE(EnvelopeFile(scratch_.File("plain"), scratch_.File("enveloped")));
  ASSERT_TRUE(message_.Load(scratch_.File("signed")));
  ASSERT_TRUE(message_.Load(scratch_.File("enveloped")));
  EXPECT_EQ(ToString(message_.GetTypeStr()), "envelopedData");
}

TEST_F(CmsLoadFileTest, ReadsEveryFormOfAMessageInAString) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", "some content"), scratch_.File("signed")));
  const std::string bytes = scratch_.Read("signed");
  const std::string base64 = CryptStand::ToBase64(bytes);
  for (const std::string& text :
       {base64, InLines(base64), "\n  " + WithLineEnds(InLines(base64), "\r\n") + "\t\n",
        MakePEM("CMS", bytes), MakePEM("PKCS7", bytes)}) {
    CMSMsg message;
    ASSERT_TRUE(message.Load(ToText(text))) << GetReason() << text;
    EXPECT_TRUE(message.Verify()) << GetReason();
    EXPECT_EQ(ContentOf(message), "some content");
  }
}

TEST_F(CmsLoadFileTest, RefusesAStringThatIsNoMessage) {
  for (const char* text : {"", " \n", "!", "AAAA", "-----BEGIN CMS-----\n-----END CMS-----\n", "MIIB"}) {
    LeaveStaleReason();
    EXPECT_FALSE(message_.Load(ToText(text))) << text;
    EXPECT_NE(GetReason(), "stale") << text;
    EXPECT_TRUE(IsQueueEmpty());
  }
}

TEST_F(CmsLoadFileTest, IsNoMessageWhenItsSignersCannotBeParsed) {
  const std::string bytes =
      Tlv(0x30, Tlv(0x06, Hex("2A864886F70D010702")) +
                    Tlv(0xA0, Tlv(0x30, Hex("020101 3100") + Tlv(0x30, Tlv(0x06, Hex("2A864886F70D010701"))) +
                                            Tlv(0x31, Tlv(0x30, Hex("020101"))))));
  LeaveStaleReason();
  EXPECT_FALSE(message_.Load(scratch_.Make("broken", bytes)));
  EXPECT_NE(GetReason(), "stale");
  EXPECT_TRUE(IsQueueEmpty());
}

TEST_F(CmsLoadFileTest, RefusesAPipeWhichHasNoSize) {
  ASSERT_EQ(::mkfifo(scratch_.Path("fifo").c_str(), 0600), 0);
  const int both = ::open(scratch_.Path("fifo").c_str(), O_RDWR);
  EXPECT_FALSE(message_.Load(scratch_.File("fifo")));
  ::close(both);
  EXPECT_EQ(GetReason(), "The size of a pipe or device is unknown: copy it to a file first");
}

TEST_F(CmsLoadFileTest, FailsWhenTheFileIsCutAfterLoading) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", MakeBytes(600000)), scratch_.File("signed")));
  ASSERT_TRUE(message_.Load(scratch_.File("signed")));
  std::filesystem::resize_file(scratch_.Path("signed"), 300000);
  EXPECT_EQ(ReasonOf(message_.Verify()), "The file changed while it was read");
  EXPECT_EQ(ReasonOf(message_.GetContent(scratch_.File("out"))), "The file changed while it was read");
}

TEST_F(CmsLoadFileTest, ReportsTheSystemsReasonWhenTheContentCannotBeWritten) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", MakeBytes(600000)), scratch_.File("signed")));
  ASSERT_TRUE(message_.Load(scratch_.File("signed")));
  EXPECT_EQ(ReasonOf(message_.GetContent(File("/dev/full"))), "No space left on device");
  EXPECT_EQ(ReasonOf(message_.GetContent(File(ToText(scratch_.Path("no/where").string())))),
            "No such file or directory");
}

TEST_F(CmsLoadFileTest, LeavesTheBlobUnchangedWhenTheContentFails) {
  Blob blob;
  std::copy_n("old", 3, blob.Alloc(3));
  ASSERT_TRUE(EnvelopeFile(scratch_.Make("plain", "x"), scratch_.File("enveloped")));
  ASSERT_TRUE(message_.Load(scratch_.File("enveloped")));
  EXPECT_FALSE(message_.GetContent(blob));
  EXPECT_EQ(GetReason(), "No key to open the message with was set");
  EXPECT_EQ(ToString(blob), "old");
}

TEST_F(CmsLoadFileTest, ReplacesALongerTargetOfTheContent) {
  ASSERT_TRUE(SignFile(scratch_.Make("plain", "short"), scratch_.File("signed")));
  ASSERT_TRUE(message_.Load(scratch_.File("signed")));
  ASSERT_TRUE(message_.GetContent(scratch_.Make("out", MakeBytes(10000))));
  EXPECT_EQ(scratch_.Read("out"), "short");
}

}  // namespace
}  // namespace SecurityTest

#include <gtest/gtest.h>

#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

const std::string kAes256 = Hex("060960864801650304012A");
constexpr const char* kCouldNotDecrypt = "The content cannot be decrypted with this key";

/// The outer message of every test: 100000 bytes for Room().
class CmsDecryptingTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(EnvelopeFile(scratch_.Make("plain", bytes_), scratch_.File("enveloped"))) << GetReason();
    enveloped_ = scratch_.Read("enveloped");
    ASSERT_TRUE(message_.Load(scratch_.File("enveloped"))) << GetReason();
  }
  bool Load(const std::string& bytes) { return message_.Load(scratch_.Make("changed", bytes)); }
  std::string GetEncryptedKey() {
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
    EXPECT_TRUE(message_.GetRecipients(recipients)) << GetReason();
    return recipients.IsEmpty() ? "" : ToString(recipients.Get(0)->encryptedKey);
  }
  // The INTEGER that names the certificate of the recipient.
  std::string GetSerial() {
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
    EXPECT_TRUE(message_.GetRecipients(recipients)) << GetReason();
    const std::string serial = Hex(std::string(recipients.Get(0)->serial.View()));
    return Tlv(0x02, (serial[0] & 0x80) != 0 ? '\0' + serial : serial);
  }
  // The algorithm of the content encryption and the encrypted octets, as they are in the message.
  std::string GetCipher() const { return enveloped_.substr(enveloped_.find(kAes256) - 2, 31); }
  std::string GetEncrypted() const {
    return enveloped_.substr(enveloped_.find(Hex("04830186B0"), enveloped_.find(kAes256)) + 5, 0x186B0);
  }
  std::string GetContentKey() { return Room().key.Decrypt(GetEncryptedKey()); }
  bool SetContentKey(const std::string& key) {
    return message_.SetContentKey(ToText(CryptStand::ToBase64(key)));
  }
  bool SetRoomKey() {
    return message_.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(Room().key));
  }
  std::string ReplaceKey(const std::string& key) {
    std::string bytes = enveloped_;
    const std::string old = GetEncryptedKey();
    const std::size_t place = bytes.find(old);
    return bytes.replace(place, old.size(), key);
  }

  ScratchDirectory scratch_;
  std::string bytes_ = MakeBytes(100000);
  std::string enveloped_;
  CMSMsg message_;
};

TEST_F(CmsDecryptingTest, RefusesTheKeyOfAnotherCertificate) {
  EXPECT_FALSE(message_.SetRecipientKey(ToCertificate(Signer().certificate), ToPrivateKey(Signer().key)));
  EXPECT_EQ(GetReason(), "The message is not addressed to the certificate");
}

TEST_F(CmsDecryptingTest, RefusesAnEmptyCertificateOrKey) {
  EXPECT_FALSE(message_.SetRecipientKey({}, ToPrivateKey(Room().key)));
  EXPECT_EQ(GetReason(), "The key to open the message with is empty");
  EXPECT_FALSE(message_.SetRecipientKey(ToCertificate(Room().certificate), OruOssSec::PrivateKey(nullptr)));
  EXPECT_EQ(GetReason(), "The key to open the message with is empty");
}

TEST_F(CmsDecryptingTest, RefusesKeysForAMessageThatIsNotEnveloped) {
  ASSERT_TRUE(SignFile(scratch_.File("plain"), scratch_.File("signed")));
  ASSERT_TRUE(message_.Load(scratch_.File("signed")));
  EXPECT_FALSE(SetRoomKey());
  EXPECT_EQ(GetReason(), "The message is not an enveloped one");
  EXPECT_FALSE(SetContentKey(std::string(32, 'k')));
  EXPECT_EQ(GetReason(), "The message is not an enveloped one");
}

TEST_F(CmsDecryptingTest, FailsWithoutAKey) {
  EXPECT_EQ(ContentOf(message_), "No key to open the message with was set");
}

TEST_F(CmsDecryptingTest, AcceptsAWrongPrivateKeyAndFailsInTheContent) {
  // About four times in a thousand the padding happens to be valid; the content is then rubbish.
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(message_.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(SharedKey(3))));
    Blob content;
    if (message_.GetContent(content)) {
      EXPECT_NE(ToString(content), bytes_);
    } else {
      EXPECT_EQ(GetReason(), kCouldNotDecrypt);
    }
    EXPECT_TRUE(IsQueueEmpty());
  }
}

TEST_F(CmsDecryptingTest, ReportsEveryFaultOfTheEncryptedKeyAlike) {
  const Cert& room = Room().certificate;
  const std::string blocks[] = {
      std::string(256, '\0'),                             // no padding
      std::string(256, '\xFF'),                           // larger than the modulus
      room.GetPublicKey().Encrypt(std::string(16, 'k')),  // a key of another length
      room.GetPublicKey().Encrypt(std::string(32, 'k')),  // another key
      room.GetPublicKey().Encrypt(std::string(33, 'k')),  // one byte too many
      room.GetPublicKey().Encrypt(""),                    // no key
  };
  for (const std::string& block : blocks) {
    ASSERT_EQ(block.size(), 256U);
    ASSERT_TRUE(Load(ReplaceKey(block))) << GetReason();
    ASSERT_TRUE(SetRoomKey()) << GetReason();
    Blob content;
    if (message_.GetContent(content)) {
      EXPECT_NE(ToString(content), bytes_);
    } else {
      EXPECT_EQ(GetReason(), kCouldNotDecrypt);
    }
    ASSERT_TRUE(message_.Load(scratch_.File("enveloped")));
  }
}

TEST_F(CmsDecryptingTest, ReportsAPrivateKeyOfAnotherTypeLikeAWrongKey) {
  ASSERT_TRUE(message_.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(KeyPair::MakeEC())));
  EXPECT_EQ(ContentOf(message_), kCouldNotDecrypt);
}

TEST_F(CmsDecryptingTest, AcceptsAWrongContentKeyAndFailsInTheContent) {
  ASSERT_TRUE(SetContentKey(std::string(32, 'k')));
  Blob content;
  if (message_.GetContent(content)) {
    EXPECT_NE(ToString(content), bytes_);
  } else {
    EXPECT_EQ(GetReason(), kCouldNotDecrypt);
  }
}

/// An envelope for Room() around any encrypted octets, under a key that the test knows.
std::string MakeEnvelope(const std::string& encryptedKey, const std::string& octets,
                         const std::string& cipher, const std::string& serial = Hex("020101")) {
  const std::string name = Tlv(0x30, Tlv(0x31, Tlv(0x30, Hex("0603550403") + Tlv(0x0C, "Test Root"))));
  const std::string recipient =
      Tlv(0x30, Hex("020100") + Tlv(0x30, name + serial) + Tlv(0x30, Hex("06092A864886F70D010101 0500")) +
                    Tlv(0x04, encryptedKey));
  const std::string fields =
      Hex("020100") + Tlv(0x31, recipient) + Tlv(0x30, Hex("06092A864886F70D010701") + cipher + octets);
  return Tlv(0x30, Hex("06092A864886F70D010703") + Tlv(0xA0, Tlv(0x30, fields)));
}

std::string Aes256(const std::string& parameters) {
  return Tlv(0x30, kAes256 + parameters);
}
const std::string kIv = Tlv(0x04, std::string(16, '\0'));

struct LengthRow {
  const char* why;
  std::string octets;
};

TEST_F(CmsDecryptingTest, ReportsEveryInvalidLengthOfTheContentAlike) {
  const LengthRow rows[] = {
      {"empty", Tlv(0x80, "")},
      {"empty segments", Open(0xA0, Tlv(0x04, "") + Tlv(0x04, ""))},
      {"one byte", Tlv(0x80, "x")},
      {"one byte short of a block", Tlv(0x80, std::string(15, 'x'))},
      {"one byte beyond a block", Tlv(0x80, std::string(17, 'x'))},
      {"block without padding", Tlv(0x80, std::string(16, '\0'))},
      {"beyond many blocks", Tlv(0x80, std::string(300001, '\0'))},
  };
  for (const LengthRow& row : rows) {
    ASSERT_TRUE(Load(MakeEnvelope("k", row.octets, Aes256(kIv)))) << row.why << GetReason();
    ASSERT_TRUE(SetContentKey(std::string(32, '\0'))) << GetReason();
    EXPECT_EQ(ContentOf(message_), kCouldNotDecrypt) << row.why;
    EXPECT_EQ(ReasonOf(message_.GetContent(scratch_.File("out"))), kCouldNotDecrypt) << row.why;
    EXPECT_TRUE(IsQueueEmpty());
  }
}

TEST_F(CmsDecryptingTest, FailsForAnEnvelopeWithoutContent) {
  ASSERT_TRUE(Load(MakeEnvelope("k", "", Aes256(kIv))));
  ASSERT_TRUE(SetContentKey(std::string(32, 'k')));
  EXPECT_EQ(ContentOf(message_), "The message does not hold its content");
}

struct BlockRow {
  const char* why;
  std::string block;
  KeyPair key;
};

/// Each fault once; `good` is the block that opens with the room's key.
std::vector<BlockRow> MakeBadRows(const std::string& good) {
  const KeyPair& key = Room().key;
  const Cert& room = Room().certificate;
  std::string changed = good;
  changed[100] = static_cast<char>(changed[100] ^ 1);
  return {
      {"wrong private key", good, SharedKey(3)},
      {"wrong private key of another size", good, KeyPair::MakeRSA(3072)},
      {"one bit changed", changed, key},
      {"no padding", std::string(256, '\0'), key},
      {"larger than the modulus", std::string(256, '\xFF'), key},
      {"empty block", "", key},
      {"block of one byte", "x", key},
      {"block one byte short", good.substr(1), key},
      {"block one byte long", good + "x", key},
      {"two blocks", good + good, key},
      {"no key in the block", room.GetPublicKey().Encrypt(""), key},
      {"key of another cipher", room.GetPublicKey().Encrypt(std::string(16, 'k')), key},
      {"key one byte short", room.GetPublicKey().Encrypt(std::string(31, 'k')), key},
      {"key one byte long", room.GetPublicKey().Encrypt(std::string(33, 'k')), key},
      {"longest key of the block", room.GetPublicKey().Encrypt(std::string(245, 'k')), key},
      {"another key", room.GetPublicKey().Encrypt(std::string(32, 'k')), key},
  };
}

// Nobody may learn whether the block was good: a wrong private key, a bad block and a block or key of a wrong
// length are all accepted and fail alike, in the content. Newer versions of OpenSSL return a key of their own
// for a bad block, of any length.
TEST_F(CmsDecryptingTest, ReportsWrongKeyBadBlockAndBadLengthAlike) {
  const std::string good = GetEncryptedKey();
  const std::string serial = GetSerial();
  const auto take = [&](const std::string& block, const KeyPair& with) {
    ASSERT_TRUE(Load(MakeEnvelope(block, Tlv(0x80, GetEncrypted()), GetCipher(), serial))) << GetReason();
    LeaveStaleReason();
    EXPECT_TRUE(message_.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(with)));
    EXPECT_EQ(OruGuiBase::GetLastError(), 0U);
  };
  take(good, Room().key);
  ASSERT_EQ(ContentOf(message_), bytes_);
  const std::vector<BlockRow> rows = MakeBadRows(good);
  std::size_t refused = 0;
  for (const BlockRow& row : rows) {
    SCOPED_TRACE(row.why);
    take(row.block, row.key);
    // About four times in a thousand the padding of rubbish happens to be valid.
    Blob content;
    if (message_.GetContent(content)) continue;
    EXPECT_EQ(GetReason(), kCouldNotDecrypt);
    EXPECT_TRUE(IsQueueEmpty());
    ++refused;
  }
  EXPECT_GT(refused, rows.size() / 2);
}

struct CipherRow {
  const char* why;
  std::string cipher;
  std::size_t keySize;
  const char* reason;
};

TEST_F(CmsDecryptingTest, ChecksTheLengthOfAContentKeyWhenItIsSet) {
  const char* const kLength = "The length of the content key does not fit the cipher";
  const char* const kParameters = "The parameters of the content encryption are invalid";
  const std::string iv8 = Tlv(0x04, std::string(8, '\0'));
  const auto aes = [](const char* last) { return Hex(std::string("06096086480165030401") + last) + kIv; };
  const CipherRow rows[] = {
      {"AES-256-CBC", Aes256(kIv), 32, ""},
      {"AES-192-CBC", Tlv(0x30, aes("16")), 24, ""},
      {"AES-128-CBC", Tlv(0x30, aes("02")), 16, ""},
      {"DES-EDE3-CBC", Tlv(0x30, Hex("06082A864886F70D0307") + iv8), 24, ""},
      {"no key", Aes256(kIv), 0, kLength},
      {"short key", Aes256(kIv), 31, kLength},
      {"long key", Aes256(kIv), 33, kLength},
      {"key of AES-128", Aes256(kIv), 16, kLength},
      {"AES-256-GCM", Tlv(0x30, aes("2E")), 32, "The content encryption algorithm is not supported"},
      {"no cipher at all", Tlv(0x30, Hex("06032A0304")), 32,
       "The content encryption algorithm is not supported"},
      {"no parameters", Aes256(""), 32, kParameters},
      {"null parameters", Aes256(Hex("0500")), 32, kParameters},
      {"short IV", Aes256(iv8), 32, kParameters},
      {"long IV", Aes256(Tlv(0x04, std::string(17, '\0'))), 32, kParameters},
  };
  for (const CipherRow& row : rows) {
    ASSERT_TRUE(Load(MakeEnvelope("k", Tlv(0x80, std::string(16, 'x')), row.cipher)))
        << row.why << GetReason();
    EXPECT_EQ(ReasonOf(SetContentKey(std::string(row.keySize, 'k'))), row.reason) << row.why;
    EXPECT_TRUE(IsQueueEmpty());
  }
}

TEST_F(CmsDecryptingTest, RefusesAContentKeyThatIsNotBase64) {
  for (const char* text : {"!", "AAA", "AAAA=", "ÄÖÜ"}) {
    LeaveStaleReason();
    EXPECT_FALSE(message_.SetContentKey(text)) << text;
    EXPECT_NE(GetReason(), "stale") << text;
    EXPECT_NE(OruGuiBase::GetLastError(), 0U) << text;
  }
}

TEST_F(CmsDecryptingTest, AcceptsAContentKeyInLines) {
  std::string text = CryptStand::ToBase64(GetContentKey());
  text.insert(20, "\r\n");
  ASSERT_TRUE(message_.SetContentKey(ToText(text + "\r\n"))) << GetReason();
  EXPECT_EQ(ContentOf(message_), bytes_);
}

TEST_F(CmsDecryptingTest, RefusesAContentKeyThatIsMuchTooLong) {
  EXPECT_FALSE(SetContentKey(std::string(100000, 'k')));
  EXPECT_NE(OruGuiBase::GetLastError(), 0U);
}

TEST_F(CmsDecryptingTest, UsesTheKeyThatWasSetLast) {
  ASSERT_TRUE(SetContentKey(std::string(32, 'k')));
  ASSERT_TRUE(SetRoomKey());
  EXPECT_EQ(ContentOf(message_), bytes_);
  const std::string key = GetContentKey();
  ASSERT_TRUE(message_.SetRecipientKey(ToCertificate(Room().certificate), ToPrivateKey(SharedKey(3))));
  ASSERT_TRUE(SetContentKey(key));
  EXPECT_EQ(ContentOf(message_), bytes_);
}

TEST_F(CmsDecryptingTest, KeepsThePreviousKeyWhenAKeyIsRefused) {
  ASSERT_TRUE(SetRoomKey());
  EXPECT_FALSE(SetContentKey("short"));
  EXPECT_EQ(ContentOf(message_), bytes_);
}

TEST_F(CmsDecryptingTest, ReportsACutSourceWithItsOwnReason) {
  ASSERT_TRUE(SetRoomKey());
  std::filesystem::resize_file(scratch_.Path("enveloped"), 50000);
  EXPECT_EQ(ContentOf(message_), "The file changed while it was read");
}

TEST_F(CmsDecryptingTest, OpensContentInSegmentsOfEveryLength) {
  // The encrypted octets of the message, cut into other segments: borders inside blocks must not matter.
  const std::string key = GetContentKey();
  const std::string cipher = GetCipher();
  const std::string encrypted = GetEncrypted();
  for (const std::size_t size : {1U, 7U, 16U, 100U, 4096U, 65536U}) {
    std::string segments;
    for (std::size_t i = 0; i < encrypted.size(); i += size) segments += Tlv(0x04, encrypted.substr(i, size));
    ASSERT_TRUE(Load(MakeEnvelope("k", Open(0xA0, segments), cipher))) << GetReason();
    ASSERT_TRUE(SetContentKey(key)) << GetReason();
    EXPECT_EQ(ContentOf(message_), bytes_) << size;
  }
}

}  // namespace
}  // namespace SecurityTest

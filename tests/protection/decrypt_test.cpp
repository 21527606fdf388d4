#include "security/cmslimits.h"
#include "tests/protection/decryption_fixture.h"
#include "tests/support/test_peer.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::KVMap;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using TestSupport::Envelope;
using TestSupport::Json;
using TestSupport::MakeData;
using TestSupport::MakeDigested;
using TestSupport::MakeEnveloped;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedServices;
using TestSupport::Str;
using TestSupport::With;

TEST_F(Decryption, DeliversPlainContentWithBothFlagsFalse) {
  ExpectDelivered(kPlain);
  EXPECT_EQ(Error(), "");
}

TEST_F(Decryption, MakesAllRequestsInOrder) {
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_THAT(services.GetSteps(), ElementsAre("key", "status", "authztoken", "decryptRequest"));
}

TEST_F(Decryption, OnlyReadsTheSource) {
  const std::string before = scratch.Read("protected.bin");
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_EQ(scratch.Read("protected.bin"), before);
}

TEST_F(Decryption, ReplacesATargetThatExists) {
  scratch.Make("opened", std::string(100000, 'x'));
  ExpectDelivered(kPlain);
}

TEST_F(Decryption, DeliversContentOfEachLengthAroundABlock) {
  for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 262143U, 262144U, 262145U}) {
    const std::string content(size, '\x80');
    Protect(content);
    ExpectDelivered(content);
  }
}

TEST_F(Decryption, AsksForTheKeyOfTheRecipient) {
  ASSERT_TRUE(Decrypt()) << Error();
  const RecordedRequest request = services.GetRequests("key")[0];
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body,
            R"({"id":{"issuer":"CN=Inner signing","serial":")" + pki.room.certificate.GetSerial() + R"("}})");
}

TEST_F(Decryption, SendsContentKeyToKeyServer) {
  const std::string wrapped = TestSupport::WrappedKey(pki.innerSigning.certificate);
  SetRoomKey("data", Quoted(wrapped));
  ASSERT_TRUE(Decrypt()) << Error();
  const RecordedRequest request = services.GetRequests("decryptRequest")[0];
  const KVMap payload = TestSupport::Map(request.body).Get("payload").AsMap();
  const std::string encrypted = Str(payload.Get("encryptedData").AsArray()[0].AsString());
  EXPECT_EQ(request.body,
            Envelope(R"({"type":"decryptRequest","decryptionKey":{"type":"wrappedKey","encodedWrappedKey":)" +
                     Quoted(wrapped) + R"(},"algorithm":"RSAES-PKCS1-v1_5","encryptedData":[)" +
                     Quoted(encrypted) + "]}"));
  EXPECT_EQ(TestSupport::FromBase64(encrypted).size(), 256U);
  EXPECT_EQ(encrypted.find('\n'), std::string::npos);
}

TEST_F(Decryption, RequestsTokenForRoomWithoutKey) {
  ASSERT_TRUE(Decrypt()) << Error();
  const RecordedRequest request = services.GetRequests("authztoken")[0];
  EXPECT_THAT(request.url, EndsWith("/crypt/authztoken/room%201"));
  EXPECT_EQ(request.body, R"({"keyserver":"https://one.example","operation":"decryptRequest"})");
}

TEST_F(Decryption, SendsNoContentAnywhere) {
  ASSERT_TRUE(Decrypt()) << Error();
  const std::string file = scratch.Read("protected.bin");
  const std::string cipherText = TestSupport::ToBase64(file.substr(file.size() - 30));
  for (const RecordedRequest& request : services.http.GetRequests()) {
    EXPECT_THAT(request.body, Not(HasSubstr(kPlain)));
    EXPECT_THAT(request.body, Not(HasSubstr(cipherText)));
  }
}

TEST_F(Decryption, DecryptsByItselfWithPlainKey) {
  HandOutPlainKey();
  ExpectDelivered(kPlain);
  EXPECT_THAT(services.GetSteps(), ElementsAre("key"));
}

TEST_F(Decryption, PrefersPlainKeyToWrappedKey) {
  services.Set(
      "key",
      Json(With(With(ScriptedServices::RoomKeyResponse(), "data", R"("nothing that could be unwrapped")"),
                "plain", Quoted(pki.room.key.ToPEM()))));
  ExpectDelivered(kPlain);
  EXPECT_EQ(services.Count("decryptRequest"), 0U);
}

TEST_F(Decryption, NeedsNoWrappedKeyWithPlainKey) {
  services.Set("key", Json(With(With(ScriptedServices::RoomKeyResponse(), "data", R"("")"), "plain",
                                Quoted(pki.room.key.ToPEM()))));
  ExpectDelivered(kPlain);
}

TEST_F(Decryption, DeliversAnEnvelopeInsideTheEnvelopeUnopened) {
  const std::string inner = MakeEnveloped("deeper", {pki.room.certificate});
  Protect(inner);
  ExpectDelivered(inner);
  EXPECT_EQ(services.Count("decryptRequest"), 1U);
}

// Limits bound what opening a message costs, and this one is not opened.
TEST_F(Decryption, DeliversAnInnerEnvelopeWithHundredsOfRecipientsUnopened) {
  const std::vector<CryptStand::Cert> recipients(OruOssSec::CMSLimits::kRecipients + 1, pki.room.certificate);
  const std::string inner = MakeEnveloped("deeper", recipients);
  Protect(inner);
  ExpectDelivered(inner);
}

TEST_F(Decryption, DeliversAnInnerEnvelopeLargerThanTheLimitUnopened) {
  // Indefinite lengths around a SET of one recipient of 16 MiB and an empty EncryptedContentInfo.
  using namespace std::string_literals;
  const std::string inner =
      "\x30\x80\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x03\xA0\x80\x30\x80\x02\x01\x00"
      "\x31\x84\x01\x00\x00\x06\xA5\x84\x01\x00\x00\x00"s +
      std::string(std::size_t{16} << 20, 'x') +
      "\x30\x0D\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01\x30\x00\x00\x00\x00\x00\x00\x00"s;
  Protect(inner);
  ExpectDelivered(inner);
}

TEST_F(Decryption, DeliversAMessageOfAnotherTypeUnopened) {
  const std::string inner = MakeData("text");
  Protect(inner);
  ExpectDelivered(inner);
}

TEST_F(Decryption, DeliversTheContentOfADigestedMessage) {
  Protect(MakeDigested("digested"));
  ExpectDelivered("digested");
}

TEST_F(Decryption, LeavesFlagsFalseForDigestedMessage) {
  std::string inner = MakeDigested("digested");
  inner.back() = static_cast<char>(inner.back() ^ 1);
  Protect(inner);
  ExpectDelivered("digested");
}

TEST_F(Decryption, DeliversContentThatOnlyBeginsLikeMessage) {
  const std::string inner = MakeDigested("digested");
  for (const std::string& content : {inner + "x", inner.substr(0, inner.size() - 1), inner.substr(0, 20)}) {
    Protect(content);
    ExpectDelivered(content);
  }
}

TEST_F(Decryption, OpensAFileInPlace) {
  target = source;
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_EQ(scratch.Read("protected.bin"), kPlain);
}

TEST_F(Decryption, OpensADigestedFileInPlace) {
  Protect(MakeDigested("digested"));
  target = source;
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_EQ(scratch.Read("protected.bin"), "digested");
}

TEST_F(Decryption, NamesTheTemporaryFileAfterTheSource) {
  TestSupport::SignerSpec signer;
  signer.identity = pki.integrity;
  Protect(TestSupport::MakeSigned(kPlain, {signer}));
  services.Set("certstore",
               WatchingTemporary([this](const RecordedRequest&) { return Json(pki.GetCertStore()); }));
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_THAT(temporaryNames, Contains(EndsWith("/protected.bin.tmp")));
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Decryption, LeavesTheConfigurationInTheClient) {
  ASSERT_TRUE(Decrypt()) << Error();
  const CryptClientTestPeer peer(client);
  EXPECT_EQ(Str(peer.group), TestSupport::kGroup);
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), TestSupport::kKeyServerUrl);
}

}  // namespace
}  // namespace OruKalvix

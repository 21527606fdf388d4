#include "exchange/operation_file.h"
#include "tests/protection/encryption_fixture.h"
#include "tests/support/test_peer.h"

namespace OruKalvix {
namespace {

using OruGuiBase::KVMap;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using TestSupport::ErrorCode;
using TestSupport::OpenedMessage;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedServices;
using TestSupport::Str;

TEST_F(Encryption, WrapsASignatureInAnEnvelope) {
  ASSERT_TRUE(Encrypt()) << Error();
  const OpenedMessage opened = Open();
  EXPECT_EQ(opened.content, kPlain);
  EXPECT_THAT(opened.signerDigests, ElementsAre(pki.integrity.certificate.GetDigest()));
  EXPECT_EQ(opened.signatureAlgorithm, "rsaEncryption/SHA512");
  EXPECT_FALSE(keyErrorFlag);
  EXPECT_EQ(Error(), "");
}

TEST_F(Encryption, SignsGroupRoomAndRoomUrl) {
  ASSERT_TRUE(Encrypt()) << Error();
  const OpenedMessage opened = Open();
  EXPECT_EQ(opened.attributes.size(), 3U);
  EXPECT_THAT(opened.attributes, Contains(Pair(TestSupport::kGroupOid, TestSupport::kGroup)));
  EXPECT_THAT(opened.attributes, Contains(Pair(TestSupport::kRoomOid, "room 1")));
  EXPECT_THAT(opened.attributes,
              Contains(Pair(TestSupport::kRoomUrlOid, "https://crypt.example/api/mx/room%201")));
}

TEST_F(Encryption, SignsTheRoomAsTheServiceSpellsIt) {
  SetRoomKey("room", R"("R\u00e4um/2")");
  ASSERT_TRUE(Encrypt()) << Error();
  const OpenedMessage opened = Open();
  EXPECT_THAT(opened.attributes, Contains(Pair(TestSupport::kRoomOid, "R\xC3\xA4um/2")));
  EXPECT_THAT(opened.attributes,
              Contains(Pair(TestSupport::kRoomUrlOid, "https://crypt.example/api/mx/R%C3%A4um%2F2")));
}

TEST_F(Encryption, GivesItsAttributesInTheOrderOfTheirOIDs) {
  const CryptClientTestPeer peer(client);
  peer.group = "QOB.g";
  RoomKey roomKey;
  roomKey.room = "r/1";
  EXPECT_EQ(TestSupport::JsonText(peer.GetSignedAttributes(roomKey)),
            R"({"1.3.6.1.4.1.48215.2.1":"QOB.g","1.3.6.1.4.1.48215.2.2":"r/1",)"
            R"("1.3.6.1.4.1.48215.2.3":"https://crypt.example/api/mx/r%2F1"})");
}

TEST_F(Encryption, MakesNoDoubleSlashInTheRoomUrl) {
  // A URL with a slash at its end leads to the same services.
  CryptClient other(&services.http, "https://crypt.example/api/", "", "room 1");
  ASSERT_TRUE(other.Encrypt(source, target, keyErrorFlag)) << other.GetErrorMessage().GetText();
  EXPECT_THAT(Open().attributes,
              Contains(Pair(TestSupport::kRoomUrlOid, "https://crypt.example/api/mx/room%201")));
}

TEST_F(Encryption, SignsAtTheKeyServersTime) {
  ASSERT_TRUE(Encrypt()) << Error();
  const std::time_t time = Open().signingTime;
  EXPECT_GE(time, TestSupport::kServicesTime);
  EXPECT_LE(time, TestSupport::kServicesTime + 60);
}

TEST_F(Encryption, MakesAllRequestsInOrder) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(services.GetSteps(), ElementsAre("key", "status", "certstore", "truststore", "authztoken",
                                               "getKeyRequest", "authztoken", "signRequest"));
}

TEST_F(Encryption, AsksForTheCurrentKey) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(services.GetRequests("key")[0].method, "GET");
}

TEST_F(Encryption, AsksForTheIntegrityKeyWithoutSubId) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(
      services.GetRequests("getKeyRequest")[0].body,
      HasSubstr(R"("key":{"type":"handle","id":"integrity","subId":""},"representation":"certificate")"));
}

TEST_F(Encryption, SignsSHA512HashWithIntegrityKey) {
  ASSERT_TRUE(Encrypt()) << Error();
  const std::string body = services.GetRequests("signRequest")[0].body;
  EXPECT_THAT(body, HasSubstr(R"("signatureKey":{"type":"handle","id":"integrity","subId":"7"})"));
  EXPECT_THAT(body, HasSubstr(R"("algorithm":"RSASSA-PKCS1-v1_5-SHA-512")"));
  const KVMap payload = TestSupport::Map(body).Get("payload").AsMap();
  const OruGuiBase::Array<OruGuiBase::Val> hashes = payload.Get("hashesToBeSigned").AsArray();
  ASSERT_EQ(hashes.GetCount(), 1U);
  EXPECT_EQ(TestSupport::FromBase64(Str(hashes[0].AsString())).size(), 64U);
}

TEST_F(Encryption, SendsNoContentAnywhere) {
  ASSERT_TRUE(Encrypt()) << Error();
  for (const RecordedRequest& request : services.http.GetRequests()) {
    EXPECT_THAT(request.body, Not(HasSubstr(kPlain)));
    EXPECT_THAT(request.body, Not(HasSubstr(TestSupport::ToBase64(kPlain))));
  }
}

TEST_F(Encryption, OnlyReadsTheSource) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(scratch.Read("plain.txt"), kPlain);
}

TEST_F(Encryption, ReplacesATargetThatExists) {
  scratch.Make("protected.bin", std::string(100000, 'x'));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(Open().content, kPlain);
}

TEST_F(Encryption, ProtectsAnEmptyFile) {
  scratch.Make("plain.txt", "");
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(Open().content, "");
}

TEST_F(Encryption, ProtectsContentOfEachLengthAroundABlock) {
  for (const std::size_t size : {1U, 15U, 16U, 17U, 262143U, 262144U, 262145U}) {
    const std::string content(size, '\x80');
    scratch.Make("plain.txt", content);
    ASSERT_TRUE(Encrypt()) << size << ": " << Error();
    EXPECT_EQ(Open().content, content) << size;
  }
}

TEST_F(Encryption, ProtectsAFileInPlace) {
  target = source;
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(Open("plain.txt").content, kPlain);
}

TEST_F(Encryption, LeavesAFileInPlacePlainWhenItFails) {
  services.Set("signRequest", ErrorCode(607));
  target = source;
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(scratch.Read("plain.txt"), kPlain);
}

TEST_F(Encryption, NamesTheTemporaryFileAfterTheTarget) {
  services.Set("signRequest", WatchingTemporary(ScriptedServices::Signed));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(temporaryNames, Contains(EndsWith("/protected.bin.tmp")));
  EXPECT_THAT(temporaryNames, Not(Contains(HasSubstr("plain.txt"))));
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Encryption, LeavesConfigurationAndIntegrityKeyInTheClient) {
  ASSERT_TRUE(Encrypt()) << Error();
  const CryptClientTestPeer peer(client);
  EXPECT_EQ(Str(peer.group), TestSupport::kGroup);
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), TestSupport::kKeyServerUrl);
  EXPECT_EQ(Str(peer.integrityKey.subId), TestSupport::kIntegritySubId);
  EXPECT_TRUE(peer.integrityKey.IsUsable());
}

TEST_F(Encryption, AsksAgainForEachFile) {
  ASSERT_TRUE(Encrypt()) << Error();
  ASSERT_TRUE(client.Encrypt(source, scratch.File("second"), keyErrorFlag)) << Error();
  EXPECT_EQ(services.Count("key"), 2U);
  EXPECT_EQ(services.Count("getKeyRequest"), 2U);
  EXPECT_EQ(Open("second").content, kPlain);
  EXPECT_NE(scratch.Read("protected.bin"), scratch.Read("second"));
}

TEST_F(Encryption, SendsTheTransactionWithEachToken) {
  client.SetTransaction("tx-9");
  ASSERT_TRUE(Encrypt()) << Error();
  ASSERT_EQ(services.Count("authztoken"), 2U);
  for (const RecordedRequest& request : services.GetRequests("authztoken")) {
    EXPECT_THAT(request.body, HasSubstr(R"("transaction":"tx-9")"));
  }
}

}  // namespace
}  // namespace OruKalvix

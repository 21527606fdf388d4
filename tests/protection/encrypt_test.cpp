#include "protection/operationfile.h"
#include "tests/protection/roadtest.h"

namespace OruKalvix {
namespace {

using OruGuiBase::File;
using OruGuiBase::KVMap;
using OruGuiBase::TempFile;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::StartsWith;
using TestSupport::Authority;
using TestSupport::Cert;
using TestSupport::EndEntity;
using TestSupport::ErrorCode;
using TestSupport::HttpAnswer;
using TestSupport::Identity;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::NoExchange;
using TestSupport::OpenedMessage;
using TestSupport::Payload;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedRoad;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::With;

constexpr const char* kPlain = "the plain bytes of a file";

class Encryption : public TestSupport::RoadTest {
 protected:
  Encryption() : source(scratch.Make("plain.txt", kPlain)), target(scratch.File("protected.bin")) {}

  bool Encrypt() { return client.Encrypt(source, target, keyErrorFlag); }
  /// The operation fails without a trace: no target, no temporary file, the source as it was.
  void ExpectNothingWritten() {
    EXPECT_FALSE(Encrypt());
    EXPECT_FALSE(scratch.Exists("protected.bin"));
    EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
    EXPECT_EQ(scratch.Read("plain.txt"), kPlain);
    EXPECT_FALSE(keyErrorFlag);
  }
  /// The inner message of the target.
  OpenedMessage Open(const char* name = "protected.bin") {
    return TestSupport::OpenSigned(TestSupport::OpenEnvelope(scratch.Read(name), pki.room));
  }
  void SetRoomKey(const char* member, const std::string& json) {
    road.Set("key", Json(With(ScriptedRoad::RoomKeyAnswer(), member, json)));
  }
  /// The crypt service knows no key for the room.
  void TakeRoomKeyAway() { SetRoomKey("certificate", R"("")"); }

  File source;
  File target;
  bool keyErrorFlag = true;
};

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

TEST_F(Encryption, MakesNoDoubleSlashInTheRoomUrl) {
  // A URL with a slash behind it leads to the same services.
  CryptClient other(&road.http, "https://crypt.example/api/", "", "room 1");
  ASSERT_TRUE(other.Encrypt(source, target, keyErrorFlag)) << other.GetErrorMessage().GetText();
  EXPECT_THAT(Open().attributes,
              Contains(Pair(TestSupport::kRoomUrlOid, "https://crypt.example/api/mx/room%201")));
}

TEST_F(Encryption, SignsAtTheKeyServersTime) {
  ASSERT_TRUE(Encrypt()) << Error();
  const std::time_t time = Open().signingTime;
  EXPECT_GE(time, TestSupport::kRoadTime);
  EXPECT_LE(time, TestSupport::kRoadTime + 60);
}

TEST_F(Encryption, GoesTheWholeRoadInOrder) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(road.GetSteps(), ElementsAre("key", "status", "certstore", "truststore", "authztoken",
                                           "getKeyRequest", "authztoken", "signRequest"));
}

TEST_F(Encryption, AsksForTheCurrentKey) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(road.GetRequests("key")[0].method, "GET");
}

TEST_F(Encryption, AsksForTheIntegrityKeyWithoutSubId) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(
      road.GetRequests("getKeyRequest")[0].body,
      HasSubstr(R"("key":{"type":"handle","id":"integrity","subId":""},"representation":"certificate")"));
}

TEST_F(Encryption, HasTheIntegrityKeySignAHashOfSHA512) {
  ASSERT_TRUE(Encrypt()) << Error();
  const std::string body = road.GetRequests("signRequest")[0].body;
  EXPECT_THAT(body, HasSubstr(R"("signatureKey":{"type":"handle","id":"integrity","subId":"7"})"));
  EXPECT_THAT(body, HasSubstr(R"("algorithm":"RSASSA-PKCS1-v1_5-SHA-512")"));
  const KVMap payload = TestSupport::Map(body).Get("payload").AsMap();
  const OruGuiBase::Array<OruGuiBase::Val> hashes = payload.Get("hashesToBeSigned").AsArray();
  ASSERT_EQ(hashes.GetCount(), 1U);
  EXPECT_EQ(TestSupport::FromBase64(Str(hashes[0].AsString())).size(), 64U);
}

TEST_F(Encryption, SendsNoContentAnywhere) {
  ASSERT_TRUE(Encrypt()) << Error();
  for (const RecordedRequest& request : road.http.GetRequests()) {
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
  road.Set("signRequest", ErrorCode(607));
  target = source;
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(scratch.Read("plain.txt"), kPlain);
}

TEST_F(Encryption, NamesTheTemporaryFileAfterTheTarget) {
  road.Set("signRequest", WatchingTemporary(ScriptedRoad::Signed));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(temporaryNames, Contains(EndsWith("/protected.bin.tmp")));
  EXPECT_THAT(temporaryNames, Not(Contains(HasSubstr("plain.txt"))));
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Encryption, LeavesConfigurationAndIntegrityKeyInTheClient) {
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(Str(peer.group), TestSupport::kGroup);
  EXPECT_EQ(peer.statusTimeout, 5000U);
  EXPECT_EQ(Str(peer.keyServerCursor.keyServerUrl), TestSupport::kKeyServerUrl);
  EXPECT_EQ(Str(peer.integrityKey.subId), TestSupport::kIntegritySubId);
  EXPECT_TRUE(peer.integrityKey.IsUsable());
}

TEST_F(Encryption, AsksAnewForEachFile) {
  ASSERT_TRUE(Encrypt()) << Error();
  ASSERT_TRUE(client.Encrypt(source, scratch.File("second"), keyErrorFlag)) << Error();
  EXPECT_EQ(road.Count("key"), 2U);
  EXPECT_EQ(road.Count("getKeyRequest"), 2U);
  EXPECT_EQ(Open("second").content, kPlain);
  EXPECT_NE(scratch.Read("protected.bin"), scratch.Read("second"));
}

TEST_F(Encryption, SendsTheTransactionWithEachToken) {
  client.SetTransaction("tx-9");
  ASSERT_TRUE(Encrypt()) << Error();
  ASSERT_EQ(road.Count("authztoken"), 2U);
  for (const RecordedRequest& request : road.GetRequests("authztoken")) {
    EXPECT_THAT(request.body, HasSubstr(R"("transaction":"tx-9")"));
  }
}

TEST_F(Encryption, FailsWithTheMessageOfTheRoomKeysRetrieval) {
  road.Set("key", Status(500));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get room key: HTTP 500");
  EXPECT_THAT(road.GetSteps(), ElementsAre("key"));
}

TEST_F(Encryption, RaisesTheFlagForTheOneDistinguishedRefusal) {
  road.Set("key", Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"Ask for access"})"));
  keyErrorFlag = false;
  EXPECT_FALSE(Encrypt());
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_EQ(Error(), "Ask for access");
  EXPECT_FALSE(scratch.Exists("protected.bin"));
}

TEST_F(Encryption, LowersTheFlagForEachOtherRefusal) {
  road.Set("key", Json(R"({"errorid":"QOB.2","errortext":"No"})"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get room key: No");
}

TEST_F(Encryption, LowersTheFlagOfAnEarlierRefusal) {
  road.Once("key", Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"Ask for access"})"));
  EXPECT_FALSE(Encrypt());
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_TRUE(Encrypt());
  EXPECT_FALSE(keyErrorFlag);
}

TEST_F(Encryption, NeedsAServiceUrl) {
  CryptClient other(&road.http, "", "", "room 1");
  EXPECT_FALSE(other.Encrypt(source, target, keyErrorFlag));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  EXPECT_EQ(road.http.GetRequestCount(), 0U);
}

TEST_F(Encryption, MakesTheKeyOfARoomThatHasNone) {
  TakeRoomKeyAway();
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(road.GetSteps(), ElementsAre("key", "certlist", "status", "authztoken",
                                           "generateWrappedKeyRequest", "newkey", "certstore", "truststore",
                                           "authztoken", "getKeyRequest", "authztoken", "signRequest"));
  EXPECT_EQ(Open().content, kPlain);
}

TEST_F(Encryption, MakesTheKeyForTheCertificatesOfTheRoom) {
  TakeRoomKeyAway();
  road.Set("certlist", Json(With(ScriptedRoad::RoomCertsAnswer(), "room", R"("room 1 by its name")")));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(road.GetRequests("certlist")[0].body, R"({"keyserver":""})");
  const std::string body = road.GetRequests("generateWrappedKeyRequest")[0].body;
  EXPECT_THAT(body, HasSubstr(R"("certificateSubject":"CN=room 1 by its name-tr")"));
  EXPECT_THAT(body, HasSubstr(R"([{"type":"externalCertificate","encodedCertificate":"member-1"},)"));
  EXPECT_THAT(Open().attributes, Contains(Pair(TestSupport::kRoomOid, "room 1 by its name")));
}

TEST_F(Encryption, UploadsTheNewKeyWithItsSequenceNumber) {
  TakeRoomKeyAway();
  const std::string wrapped = TestSupport::WrappedKey(pki.innerSigning.certificate);
  road.Set(
      "generateWrappedKeyRequest",
      Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":)" +
              Quoted(pki.room.certificate.ToBase64()) + R"(,"encodedWrappedKey":)" + Quoted(wrapped) + "}"));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(road.GetRequests("newkey")[0].body, R"({"seqnr":"42","key":)" + Quoted(wrapped) + "}");
}

TEST_F(Encryption, ReplacesAKeyWithoutDataUnproven) {
  SetRoomKey("data", R"("")");
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(road.GetSteps()[1], "certlist");
  EXPECT_EQ(road.Count("certstore"), 1U);
  EXPECT_EQ(Error(), "");
}

TEST_F(Encryption, ReplacesAKeyThatCannotBeProvenAndKeepsTheReason) {
  const Identity stranger = Identity::MakeRoot(Authority("Stranger"), KeyPair::MakeEC());
  const Cert room = Cert::Issue(EndEntity("room 1-tr"), pki.room.key, stranger);
  SetRoomKey("certificate", Quoted(room.ToPEM()));
  ASSERT_TRUE(Encrypt());
  ExpectReason("Could not verify room key certificate chain: ");
  EXPECT_EQ(road.GetRequests("certlist")[0].body, R"({"keyserver":"https://one.example"})");
  EXPECT_EQ(road.Count("newkey"), 1U);
  EXPECT_EQ(Open().content, kPlain);
}

TEST_F(Encryption, FailsWithoutTheRoomsCertificates) {
  TakeRoomKeyAway();
  road.Set("certlist", Status(403));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get room certificates: HTTP 403");
  EXPECT_EQ(road.Count("generateWrappedKeyRequest"), 0U);
}

TEST_F(Encryption, FailsOnTheEmptyServerListOfAServiceThatRefusesItsCertificates) {
  TakeRoomKeyAway();
  road.Set("certlist", Json(R"({"errorid":"QOB.2","errortext":"No"})"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid key server URL");
}

TEST_F(Encryption, FailsWhenNoServerMakesAKey) {
  TakeRoomKeyAway();
  road.Set("generateWrappedKeyRequest", ErrorCode(615));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "615 Key Generation Error");
  EXPECT_EQ(road.Count("newkey"), 0U);
}

TEST_F(Encryption, FailsWhenTheNewKeyIsNotTaken) {
  TakeRoomKeyAway();
  road.Set("newkey", Status(409));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not upload new room key: HTTP 409");
  EXPECT_EQ(road.Count("certstore"), 0U);
}

TEST_F(Encryption, FailsWhenTheNewKeyCannotBeProvenAndMakesNoSecond) {
  TakeRoomKeyAway();
  road.Set(
      "generateWrappedKeyRequest",
      Payload(
          R"({"type":"generateWrappedKeyResponse","encodedWrappedKey":"garbage","encodedX509Certificate":)" +
          Quoted(pki.room.certificate.ToBase64()) + "}"));
  ExpectNothingWritten();
  ExpectReason("Could not parse room key: ");
  EXPECT_EQ(road.Count("newkey"), 1U);
  EXPECT_EQ(road.Count("generateWrappedKeyRequest"), 1U);
  EXPECT_EQ(road.Count("getKeyRequest"), 0U);
}

TEST_F(Encryption, NeedsARoom) {
  SetRoomKey("room", R"("")");
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid room");
  EXPECT_EQ(road.Count("getKeyRequest"), 0U);
}

TEST_F(Encryption, NeedsAGroup) {
  SetRoomKey("group", R"("")");
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid group");
  EXPECT_EQ(road.Count("getKeyRequest"), 0U);
}

TEST_F(Encryption, MissesTheRoomBeforeTheGroup) {
  road.Set("key", Json(With(With(ScriptedRoad::RoomKeyAnswer(), "room", R"("")"), "group", R"("")")));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid room");
}

TEST_F(Encryption, FailsWithoutAnIntegrityKey) {
  road.Set("getKeyRequest", ErrorCode(607));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "607 Key Not Found");
  EXPECT_EQ(road.Count("signRequest"), 0U);
}

TEST_F(Encryption, FailsWithoutATokenForTheIntegrityKey) {
  road.Set("authztoken", Status(401));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 401");
}

TEST_F(Encryption, FailsWithoutAPlaceForTheTemporaryFile) {
  scratch.BreakTemporary();
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not create temporary file: No such file or directory");
  EXPECT_EQ(road.Count("signRequest"), 0U);
}

TEST_F(Encryption, FailsWithoutASource) {
  source = scratch.File("missing");
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(Error(), "Could not sign file: No such file or directory");
  EXPECT_FALSE(scratch.Exists("protected.bin"));
  EXPECT_EQ(road.Count("signRequest"), 0U);
}

TEST_F(Encryption, FailsForADirectory) {
  source = File(TestSupport::Ansi(scratch.Path("temporary").string()));
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(Error(), "Could not sign file: Is a directory");
}

TEST_F(Encryption, FailsInTheWordsOfTheSigningServer) {
  road.Set("signRequest", ErrorCode(609));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: 609 Auth Failed");
}

TEST_F(Encryption, FailsInTheWordsOfTheCryptServiceWhenTheSignatureGetsNoToken) {
  road.Once("authztoken", TestSupport::Token("first"));
  road.Set("authztoken", Status(403));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: Could not get authorization token: HTTP 403");
}

TEST_F(Encryption, FailsWithAnIntegrityKeyThatHasNoId) {
  road.Set("getKeyRequest",
           Payload(R"({"type":"getKeyResponse","key":{"type":"x","id":"","subId":"1","encodedCertificate":)" +
                   Quoted(pki.integrity.certificate.ToBase64()) + "}}"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: Could not sign hash: Invalid integrity key");
  EXPECT_EQ(road.Count("signRequest"), 0U);
}

TEST_F(Encryption, RefusesASignatureOfAnotherKey) {
  road.Set("signRequest",
           Payload(R"({"type":"signResponse","signedHashes":[)" +
                   Quoted(TestSupport::ToBase64(pki.room.key.SignHash(std::string(64, 'h')))) + "]}"));
  ExpectNothingWritten();
  ExpectReason("Could not sign file: ");
}

TEST_F(Encryption, RefusesAnEmptySignature) {
  road.Set("signRequest", Payload(R"({"type":"signResponse","signedHashes":["AA=="]})"));
  ExpectNothingWritten();
  ExpectReason("Could not sign file: ");
}

TEST_F(Encryption, FailsForARoomKeyThatCannotTransportKeys) {
  const Cert room = Cert::Issue(EndEntity("room 1-tr"), KeyPair::MakeEC(), pki.innerSigning);
  SetRoomKey("certificate", Quoted(room.ToPEM()));
  ExpectNothingWritten();
  ExpectReason("Could not add recipient: ");
}

TEST_F(Encryption, FailsWithoutAPlaceForTheTarget) {
  target = scratch.File("no/such/place");
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(Error(), "Could not encrypt file: No such file or directory");
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Encryption, GoesOnToTheNextKeyServerInEveryStep) {
  SetRoomKey("keyserver", R"(["https://dead.example","https://one.example"])");
  road.Set("status", [](const RecordedRequest& request) {
    return request.url.starts_with("https://dead") ? NoExchange("dead")
                                                   : TestSupport::DateAnswer(TestSupport::kRoadDate);
  });
  *CryptClientTestPeer::GetKeyServerBase() = 0;
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(Open().content, kPlain);
  EXPECT_EQ(Error(), "Could not connect to key server: dead");
}

TEST_F(Encryption, TakesANewTemporaryFileAndDropsTheOld) {
  TempFile file;
  ASSERT_TRUE(CreateTempFile(file, "one.tmp", true));
  const std::string first = Str(file.GetPath());
  ASSERT_TRUE(CreateTempFile(file, "two.tmp", true));
  EXPECT_FALSE(std::filesystem::exists(first));
  EXPECT_TRUE(std::filesystem::exists(Str(file.GetPath())));
  EXPECT_THAT(Str(file.GetPath()), EndsWith("/two.tmp"));
}

TEST_F(Encryption, KeepsATemporaryFileOfTheSamePath) {
  TempFile file;
  ASSERT_TRUE(CreateTempFile(file, "one.tmp", false));
  const std::string path = Str(file.GetPath());
  TestSupport::WriteFile(path, "kept");
  ASSERT_TRUE(CreateTempFile(file, "one.tmp", false));
  EXPECT_EQ(TestSupport::ReadFile(path), "kept");
}

}  // namespace
}  // namespace OruKalvix

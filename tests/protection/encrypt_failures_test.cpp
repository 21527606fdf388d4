#include "exchange/operation_file.h"
#include "tests/protection/encryption_fixture.h"
#include "tests/support/test_peer.h"

namespace OruKalvix {
namespace {

using OruGuiBase::File;
using OruGuiBase::TempFile;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::StartsWith;
using TestSupport::Authority;
using TestSupport::Cert;
using TestSupport::EndEntity;
using TestSupport::ErrorCode;
using TestSupport::Identity;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::ScriptedServices;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::With;

TEST_F(Encryption, FailsWithTheMessageOfTheRoomKeysRetrieval) {
  services.Set("key", Status(500));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get room key: HTTP 500");
  EXPECT_THAT(services.GetSteps(), ElementsAre("key"));
}

TEST_F(Encryption, SetsFlagForDistinguishedRefusal) {
  services.Set("key", Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"Ask for access"})"));
  keyErrorFlag = false;
  EXPECT_FALSE(Encrypt());
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_EQ(Error(), "Ask for access");
  EXPECT_FALSE(scratch.Exists("protected.bin"));
}

TEST_F(Encryption, ClearsFlagForOtherRefusals) {
  services.Set("key", Json(R"({"errorid":"QOB.2","errortext":"No"})"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get room key: No");
}

TEST_F(Encryption, ClearsFlagOfEarlierRefusal) {
  services.Once("key", Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"Ask for access"})"));
  EXPECT_FALSE(Encrypt());
  EXPECT_TRUE(keyErrorFlag);
  EXPECT_TRUE(Encrypt());
  EXPECT_FALSE(keyErrorFlag);
}

TEST_F(Encryption, NeedsAServiceUrl) {
  CryptClient other(&services.http, "", "", "room 1");
  EXPECT_FALSE(other.Encrypt(source, target, keyErrorFlag));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Invalid URL");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Encryption, MakesTheKeyOfARoomThatHasNone) {
  TakeRoomKeyAway();
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_THAT(
      services.GetSteps(),
      ElementsAre("key", "certlist", "status", "authztoken", "generateWrappedKeyRequest", "newkey",
                  "certstore", "truststore", "authztoken", "getKeyRequest", "authztoken", "signRequest"));
  EXPECT_EQ(Open().content, kPlain);
}

TEST_F(Encryption, MakesTheKeyForTheCertificatesOfTheRoom) {
  TakeRoomKeyAway();
  services.Set("certlist",
               Json(With(ScriptedServices::RoomCertsResponse(), "room", R"("room 1 by its name")")));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(services.GetRequests("certlist")[0].body, R"({"keyserver":""})");
  const std::string body = services.GetRequests("generateWrappedKeyRequest")[0].body;
  EXPECT_THAT(body, HasSubstr(R"("certificateSubject":"CN=room 1 by its name-tr")"));
  EXPECT_THAT(body, HasSubstr(R"([{"type":"externalCertificate","encodedCertificate":"member-1"},)"));
  EXPECT_THAT(Open().attributes, Contains(Pair(TestSupport::kRoomOid, "room 1 by its name")));
}

TEST_F(Encryption, UploadsTheNewKeyWithItsSequenceNumber) {
  TakeRoomKeyAway();
  const std::string wrapped = TestSupport::WrappedKey(pki.innerSigning.certificate);
  services.Set(
      "generateWrappedKeyRequest",
      Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":)" +
              Quoted(pki.room.certificate.ToBase64()) + R"(,"encodedWrappedKey":)" + Quoted(wrapped) + "}"));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(services.GetRequests("newkey")[0].body, R"({"seqnr":"42","key":)" + Quoted(wrapped) + "}");
}

TEST_F(Encryption, NamesNoKeyServerToTheServiceForARoomThatHasNoKey) {
  TakeRoomKeyAway();
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(services.GetRequests("certlist")[0].body, R"({"keyserver":""})");
}

TEST_F(Encryption, NamesTheKeyServerToTheServiceThatCouldNotProveTheRoomsKey) {
  services.Once("truststore", Json("garbage"));
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(services.GetRequests("certlist")[0].body, R"({"keyserver":"https://one.example"})");
}

TEST_F(Encryption, ReplacesKeyWithoutDataAndProvesNothing) {
  SetRoomKey("data", R"("")");
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(services.GetSteps()[1], "certlist");
  EXPECT_EQ(services.Count("certstore"), 1U);
  EXPECT_EQ(Error(), "");
}

TEST_F(Encryption, ReplacesAKeyThatCannotBeProvenAndKeepsTheReason) {
  const Identity stranger = Identity::MakeRoot(Authority("Stranger"), KeyPair::MakeEC());
  const Cert room = Cert::Issue(EndEntity("room 1-tr"), pki.room.key, stranger);
  SetRoomKey("certificate", Quoted(room.ToPEM()));
  ASSERT_TRUE(Encrypt());
  ExpectReason("Could not verify room key certificate chain: ");
  EXPECT_EQ(services.GetRequests("certlist")[0].body, R"({"keyserver":"https://one.example"})");
  EXPECT_EQ(services.Count("newkey"), 1U);
  EXPECT_EQ(Open().content, kPlain);
}

TEST_F(Encryption, FailsWithoutTheRoomsCertificates) {
  TakeRoomKeyAway();
  services.Set("certlist", Status(403));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get room certificates: HTTP 403");
  EXPECT_EQ(services.Count("generateWrappedKeyRequest"), 0U);
}

TEST_F(Encryption, FailsOnTheEmptyServerListOfAServiceThatRefusesItsCertificates) {
  TakeRoomKeyAway();
  services.Set("certlist", Json(R"({"errorid":"QOB.2","errortext":"No"})"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid key server URL");
}

TEST_F(Encryption, FailsWhenNoServerMakesAKey) {
  TakeRoomKeyAway();
  services.Set("generateWrappedKeyRequest", ErrorCode(615));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "615 Key Generation Error");
  EXPECT_EQ(services.Count("newkey"), 0U);
}

TEST_F(Encryption, FailsWhenNewKeyCannotBeUploaded) {
  TakeRoomKeyAway();
  services.Set("newkey", Status(409));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not upload new room key: HTTP 409");
  EXPECT_EQ(services.Count("certstore"), 0U);
}

TEST_F(Encryption, FailsWhenTheNewKeyCannotBeProvenAndMakesNoSecond) {
  TakeRoomKeyAway();
  services.Set(
      "generateWrappedKeyRequest",
      Payload(
          R"({"type":"generateWrappedKeyResponse","encodedWrappedKey":"garbage","encodedX509Certificate":)" +
          Quoted(pki.room.certificate.ToBase64()) + "}"));
  ExpectNothingWritten();
  ExpectReason("Could not parse room key: ");
  EXPECT_EQ(services.Count("newkey"), 1U);
  EXPECT_EQ(services.Count("generateWrappedKeyRequest"), 1U);
  EXPECT_EQ(services.Count("getKeyRequest"), 0U);
}

TEST_F(Encryption, ReportsMissingUrlThenRoomThenGroup) {
  CryptClientTestPeer peer(client);
  RoomKey roomKey;
  CryptClient withoutUrl(&services.http, "", "", "room 1");
  EXPECT_FALSE(CryptClientTestPeer(withoutUrl).RequireUrlRoomAndGroup(roomKey));
  EXPECT_EQ(Str(withoutUrl.GetErrorMessage()), "Invalid URL");
  EXPECT_FALSE(peer.RequireUrlRoomAndGroup(roomKey));
  EXPECT_EQ(Error(), "Invalid room");
  roomKey.room = "room 1";
  EXPECT_FALSE(peer.RequireUrlRoomAndGroup(roomKey));
  EXPECT_EQ(Error(), "Invalid group");
  peer.group = "QOB.g";
  EXPECT_TRUE(peer.RequireUrlRoomAndGroup(roomKey));
}

TEST_F(Encryption, NeedsARoom) {
  SetRoomKey("room", R"("")");
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid room");
  EXPECT_EQ(services.Count("getKeyRequest"), 0U);
}

TEST_F(Encryption, NeedsAGroup) {
  SetRoomKey("group", R"("")");
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid group");
  EXPECT_EQ(services.Count("getKeyRequest"), 0U);
}

TEST_F(Encryption, ReportsMissingGroupBeforeTemporaryFile) {
  SetRoomKey("group", R"("")");
  scratch.BreakTemporary();
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid group");
}

TEST_F(Encryption, ReportsMissingIntegrityKeyBeforeTemporaryFile) {
  services.Set("getKeyRequest", ErrorCode(607));
  scratch.BreakTemporary();
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "607 Key Not Found");
}

TEST_F(Encryption, ReportsMissingRoomBeforeGroup) {
  services.Set("key",
               Json(With(With(ScriptedServices::RoomKeyResponse(), "room", R"("")"), "group", R"("")")));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Invalid room");
}

TEST_F(Encryption, FailsWithoutAnIntegrityKey) {
  services.Set("getKeyRequest", ErrorCode(607));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "607 Key Not Found");
  EXPECT_EQ(services.Count("signRequest"), 0U);
}

TEST_F(Encryption, FailsWithoutATokenForTheIntegrityKey) {
  services.Set("authztoken", Status(401));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 401");
}

TEST_F(Encryption, FailsWhenTemporaryFileCannotBeMade) {
  scratch.BreakTemporary();
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not create temporary file: No such file or directory");
  EXPECT_EQ(services.Count("signRequest"), 0U);
}

TEST_F(Encryption, FailsWithoutASource) {
  source = scratch.File("missing");
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(Error(), "Could not sign file: No such file or directory");
  EXPECT_FALSE(scratch.Exists("protected.bin"));
  EXPECT_EQ(services.Count("signRequest"), 0U);
}

TEST_F(Encryption, FailsForADirectory) {
  source = File(TestSupport::Ansi(scratch.Path("temporary").string()));
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(Error(), "Could not sign file: Is a directory");
}

TEST_F(Encryption, FailsWithMessageOfSigningServer) {
  services.Set("signRequest", ErrorCode(609));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: 609 Auth Failed");
}

TEST_F(Encryption, FailsWithMessageOfCryptServiceWhenTokenForSignatureFails) {
  services.Once("authztoken", TestSupport::Token("first"));
  services.Set("authztoken", Status(403));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: Could not get authorization token: HTTP 403");
}

TEST_F(Encryption, FailsWithAnIntegrityKeyThatHasNoId) {
  services.Set(
      "getKeyRequest",
      Payload(R"({"type":"getKeyResponse","key":{"type":"x","id":"","subId":"1","encodedCertificate":)" +
              Quoted(pki.integrity.certificate.ToBase64()) + "}}"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: Could not sign hash: Invalid integrity key");
  EXPECT_EQ(services.Count("signRequest"), 0U);
}

TEST_F(Encryption, RefusesASignatureOfAnotherKey) {
  services.Set("signRequest",
               Payload(R"({"type":"signResponse","signedHashes":[)" +
                       Quoted(TestSupport::ToBase64(pki.room.key.SignHash(std::string(64, 'h')))) + "]}"));
  ExpectNothingWritten();
  ExpectReason("Could not sign file: ");
}

TEST_F(Encryption, RefusesASignatureOfOneByte) {
  services.Set("signRequest", Payload(R"({"type":"signResponse","signedHashes":["AA=="]})"));
  ExpectNothingWritten();
  ExpectReason("Could not sign file: ");
}

TEST_F(Encryption, RefusesAnEmptySignature) {
  services.Set("signRequest", Payload(R"({"type":"signResponse","signedHashes":[""]})"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: Could not sign hash: Invalid signedHashes");
}

// A string of line ends alone is not empty, but decodes to nothing.
TEST_F(Encryption, RefusesASignatureThatDecodesToNothing) {
  services.Set("signRequest", Payload(R"({"type":"signResponse","signedHashes":["\r\n"]})"));
  ExpectNothingWritten();
  EXPECT_EQ(Error(), "Could not sign file: The signer returned no signature");
}

TEST_F(Encryption, FailsForARoomKeyThatCannotTransportKeys) {
  const Cert room = Cert::Issue(EndEntity("room 1-tr"), KeyPair::MakeEC(), pki.innerSigning);
  SetRoomKey("certificate", Quoted(room.ToPEM()));
  ExpectNothingWritten();
  ExpectReason("Could not add recipient: ");
}

TEST_F(Encryption, LeavesAFileInPlacePlainWhenItsEnvelopeFails) {
  const Cert room = Cert::Issue(EndEntity("room 1-tr"), KeyPair::MakeEC(), pki.innerSigning);
  SetRoomKey("certificate", Quoted(room.ToPEM()));
  target = source;
  EXPECT_FALSE(Encrypt());
  ExpectReason("Could not add recipient: ");
  EXPECT_EQ(scratch.Read("plain.txt"), kPlain);
}

// The envelope is one of the objects whose allocation fails here.
TEST_F(Encryption, FailsOnAllocationFailureForEnvelope) {
  const std::string error = ErrorOfFailedObject("Could not create enveloped data: ");
  EXPECT_THAT(error, StartsWith("Could not create enveloped data: "));
  EXPECT_THAT(error, EndsWith("memory"));
}

TEST_F(Encryption, FailsWhenTargetCannotBeMade) {
  target = scratch.File("no/such/place");
  EXPECT_FALSE(Encrypt());
  EXPECT_EQ(Error(), "Could not encrypt file: No such file or directory");
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Encryption, TriesNextKeyServerInEveryStep) {
  SetRoomKey("keyserver", R"(["https://dead.example","https://one.example"])");
  services.Set("status", [](const RecordedRequest& request) {
    return request.url.starts_with("https://dead") ? NoExchange("dead")
                                                   : TestSupport::DateResponse(TestSupport::kServicesDate);
  });
  TestSupport::BeginRotationAt(0);
  ASSERT_TRUE(Encrypt()) << Error();
  EXPECT_EQ(Open().content, kPlain);
  EXPECT_EQ(Error(), "Could not connect to key server: dead");
  // The dead server is tried again for both lists, the integrity key and the signature; the other one is
  // known after its first response.
  const std::vector<RecordedRequest> probes = services.GetRequests("status");
  EXPECT_EQ(probes.size(), 5U);
  EXPECT_EQ(std::count_if(probes.begin(), probes.end(),
                          [](const RecordedRequest& probe) { return probe.url.starts_with("https://dead"); }),
            4);
}

TEST_F(Encryption, TakesANewTemporaryFileAndDropsTheOld) {
  TempFile file;
  ASSERT_TRUE(CreateTempFile(file, "one.tmp", /*isPrivate=*/true));
  const std::string first = Str(file.GetPath());
  ASSERT_TRUE(CreateTempFile(file, "two.tmp", /*isPrivate=*/true));
  EXPECT_FALSE(std::filesystem::exists(first));
  EXPECT_TRUE(std::filesystem::exists(Str(file.GetPath())));
  EXPECT_THAT(Str(file.GetPath()), EndsWith("/two.tmp"));
}

TEST_F(Encryption, KeepsATemporaryFileOfTheSamePath) {
  TempFile file;
  ASSERT_TRUE(CreateTempFile(file, "one.tmp", /*isPrivate=*/false));
  const std::string path = Str(file.GetPath());
  TestSupport::WriteFile(path, "kept");
  ASSERT_TRUE(CreateTempFile(file, "one.tmp", /*isPrivate=*/false));
  EXPECT_EQ(TestSupport::ReadFile(path), "kept");
}

}  // namespace
}  // namespace OruKalvix

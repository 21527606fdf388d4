#include "security/cmslimits.h"
#include "tests/protection/decryption_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::File;
using OruGuiBase::KVMap;
using ::testing::Contains;
using ::testing::IsEmpty;
using TestSupport::Ansi;
using TestSupport::ErrorCode;
using TestSupport::Json;
using TestSupport::MakeData;
using TestSupport::MakeDigested;
using TestSupport::MakeEnveloped;
using TestSupport::Payload;
using TestSupport::Quoted;
using TestSupport::ScriptedServices;
using TestSupport::Status;
using TestSupport::TraceRecorder;
using TestSupport::With;

TEST_F(Decryption, NeedsASource) {
  source = scratch.File("missing");
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not parse encrypted file: No such file or directory");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesADirectory) {
  source = File(Ansi(scratch.Path("temporary").string()));
  ExpectNothingDelivered();
  ExpectReason("Could not parse encrypted file: ");
}

TEST_F(Decryption, RefusesAFileThatIsNoMessage) {
  const std::string whole = scratch.Read("protected.bin");
  for (const std::string& content : {std::string(), std::string(kPlain), std::string("0"), whole + "x"}) {
    scratch.Make("protected.bin", content);
    ExpectNothingDelivered();
    ExpectReason("Could not parse encrypted file: ");
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesAFileThatIsCutAtAnyLength) {
  const std::string whole = scratch.Read("protected.bin");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    scratch.Make("protected.bin", whole.substr(0, size));
    EXPECT_FALSE(Decrypt()) << size;
    ExpectReason("Could not parse encrypted file: ");
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesASignedMessageWithoutEnvelope) {
  TestSupport::SignerSpec signer;
  signer.identity = pki.integrity;
  scratch.Make("protected.bin", TestSupport::MakeSigned(kPlain, {signer}));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Invalid content type signedData");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesAnyOtherMessageWithoutEnvelope) {
  const struct {
    std::string message;
    const char* error;
  } rows[] = {
      {MakeData(kPlain), "Invalid content type data"},
      {MakeDigested(kPlain), "Invalid content type digestedData"},
  };
  for (const auto& row : rows) {
    scratch.Make("protected.bin", row.message);
    ExpectNothingDelivered();
    EXPECT_EQ(Error(), row.error);
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesARecipientNamedByKeyIdentifier) {
  scratch.Make("protected.bin", TestSupport::MakeEnvelopedByKeyId(kPlain, pki.room.certificate));
  ExpectNothingDelivered();
  ExpectReason("Could not read encrypted content keys: ");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesEnvelopeWithoutRecipientsAndSendsNothing) {
  scratch.Make("protected.bin", MakeEnveloped(kPlain, {}));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not get encrypted content key");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, RefusesEnvelopeWithSeveralRecipientsAndSendsNothing) {
  const CryptStand::Cert& room = pki.room.certificate;
  for (const std::string& message :
       {MakeEnveloped(kPlain, {room, pki.integrity.certificate}), MakeEnveloped(kPlain, {room, room}),
        MakeEnveloped(kPlain, {room, pki.integrity.certificate, room})}) {
    scratch.Make("protected.bin", message);
    ExpectNothingDelivered();
    EXPECT_EQ(Error(), "Could not get encrypted content key");
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

// It is neither a message whose signature could be checked nor plain content.
TEST_F(Decryption, DeliversNoSignedMessageWhoseSigningTimeCannotBeRead) {
  TestSupport::SignerSpec signer;
  signer.identity = pki.integrity;
  signer.signingTime = 1'275'393'600;
  std::string inner = TestSupport::MakeSigned(kPlain, {signer});
  const std::size_t place = inner.find("100601120000Z");
  ASSERT_NE(place, std::string::npos);
  inner.replace(place, 13, "nonsense time");
  Protect(inner);
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not decrypt file: The signing time of a signer cannot be read");
}

TEST_F(Decryption, RefusesAnEnvelopeWithHundredsOfRecipientsLikeOneWithTwo) {
  const std::vector<CryptStand::Cert> recipients(OruOssSec::CMSLimits::kRecipients + 1, pki.room.certificate);
  scratch.Make("protected.bin", MakeEnveloped(kPlain, recipients));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not get encrypted content key");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Decryption, FailsWithTheMessageOfTheRoomKeysRetrieval) {
  services.Set("key", Status(500));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not get room key: HTTP 500");
}

TEST_F(Decryption, ReportsDistinguishedRefusalAsItsTextAlone) {
  services.Set("key", Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"Ask for access"})"));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Ask for access");
}

TEST_F(Decryption, FailsWhenRoomKeyHasCertificateOnly) {
  SetRoomKey("data", R"("")");
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not find matching room key");
  EXPECT_EQ(services.Count("authztoken"), 0U);
}

TEST_F(Decryption, FailsWhenRoomKeyHasNoCertificate) {
  SetRoomKey("certificate", R"("")");
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not find matching room key");
  EXPECT_EQ(services.Count("authztoken"), 0U);
}

TEST_F(Decryption, NeedsACertificateAndAKeyThatCanBeRead) {
  const KVMap response = ScriptedServices::RoomKeyResponse();
  const struct {
    KVMap response;
    const char* reason;
  } rows[] = {
      {With(response, "certificate", R"("garbage")"), "a certificate that cannot be read"},
      {With(With(response, "certificate", R"("")"), "plain", Quoted(pki.room.key.ToPEM())), "no certificate"},
      {With(With(response, "data", R"("")"), "plain", R"("garbage")"), "a key that cannot be read"},
      {KVMap(), "nothing"},
  };
  for (const auto& row : rows) {
    services.Set("key", Json(row.response));
    ExpectNothingDelivered();
    EXPECT_EQ(Error(), "Could not find matching room key") << row.reason;
  }
  EXPECT_EQ(services.Count("decryptRequest"), 0U);
}

TEST_F(Decryption, TracesWhichKeyIsMissing) {
  SetRoomKey("data", R"("")");
  const TraceRecorder traces;
  EXPECT_FALSE(Decrypt());
  EXPECT_THAT(traces.GetTexts(2), Contains("CryptClient::Decrypt: room=[room 1] keyid=[" +
                                           pki.room.certificate.GetSerial() + "/CN=Inner signing]"));
}

TEST_F(Decryption, RefusesAPlainKeyForAnotherRecipient) {
  services.Set("key", Json(With(With(ScriptedServices::RoomKeyResponse(), "certificate",
                                     Quoted(pki.integrity.certificate.ToPEM())),
                                "plain", Quoted(pki.integrity.key.ToPEM()))));
  ExpectNothingDelivered();
  ExpectReason("Could not set recipient key: ");
}

TEST_F(Decryption, FailsWhenNoKeyServerDecryptsContentKey) {
  services.Set("decryptRequest", ErrorCode(605));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "605 Invalid Wrapped Key");
}

TEST_F(Decryption, FailsWithoutAToken) {
  services.Set("authztoken", Status(403));
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not get authorization token: HTTP 403");
}

TEST_F(Decryption, FailsWithoutAKeyServer) {
  SetRoomKey("keyserver", "[]");
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Invalid key server URL");
}

TEST_F(Decryption, RefusesInvalidContentKey) {
  for (const char* key : {"not base64!", "AAAA", "YQ=="}) {
    services.Set("decryptRequest",
                 Payload(R"({"type":"decryptResponse","plainData":[")" + std::string(key) + R"("]})"));
    ExpectNothingDelivered();
    ExpectReason("Could not set content key: ");
  }
}

TEST_F(Decryption, TriesNextServerWhenFirstGivesNoContentKey) {
  SetRoomKey("keyserver", R"(["https://one.example","https://two.example"])");
  services.Once("decryptRequest", Payload(R"({"type":"decryptResponse","plainData":[""]})"));
  ExpectDelivered(kPlain);
  EXPECT_EQ(Error(), "Could not decrypt document key: Invalid plainData");
  EXPECT_EQ(services.Count("authztoken"), 2U);
  EXPECT_EQ(services.GetRequests("decryptRequest")[0].body, services.GetRequests("decryptRequest")[1].body);
}

TEST_F(Decryption, FailsWhenTemporaryFileCannotBeMade) {
  scratch.BreakTemporary();
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "Could not create temporary file: No such file or directory");
  EXPECT_EQ(services.Count("decryptRequest"), 1U);
}

TEST_F(Decryption, ReportsMissingContentKeyBeforeTemporaryFile) {
  services.Set("decryptRequest", ErrorCode(605));
  scratch.BreakTemporary();
  ExpectNothingDelivered();
  EXPECT_EQ(Error(), "605 Invalid Wrapped Key");
}

TEST_F(Decryption, LeavesAFileInPlaceProtectedWhenItsContentCannotBeOpened) {
  // A bit of the block before the last one is a bit of the last one's plain text: its padding gets too long.
  std::string changed = scratch.Read("protected.bin");
  char& beforeLastBlock = changed[changed.size() - 17];
  beforeLastBlock = static_cast<char>(beforeLastBlock ^ 0x80);
  source = target = scratch.Make("protected.bin", changed);
  EXPECT_FALSE(Decrypt());
  ExpectReason("Could not decrypt file: ");
  EXPECT_EQ(scratch.Read("protected.bin"), changed);
}

// A wrong key lets one file in about 250 pass the padding, by design; four such files in a row never come.
TEST_F(Decryption, FailsWithTheWrongContentKey) {
  services.Set("decryptRequest", Payload(R"({"type":"decryptResponse","plainData":[)" +
                                         Quoted(TestSupport::ToBase64(std::string(32, 'k'))) + "]}"));
  bool opened = true;
  for (int attempt = 0; attempt < 4 && opened; ++attempt) {
    Protect(kPlain);
    opened = Decrypt();
  }
  EXPECT_FALSE(opened);
  ExpectReason("Could not decrypt file: ");
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Decryption, FailsWithTheWrongPlainKey) {
  SetRoomKey("plain", Quoted(pki.integrity.key.ToPEM()));
  bool opened = true;
  for (int attempt = 0; attempt < 4 && opened; ++attempt) {
    Protect(kPlain);
    opened = Decrypt();
  }
  EXPECT_FALSE(opened);
  ExpectReason("Could not decrypt file: ");
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Decryption, FailsWhenTargetOfPlainContentCannotBeMade) {
  target = scratch.File("no/such/place");
  EXPECT_FALSE(Decrypt());
  EXPECT_EQ(Error(), "Could not move temporary file");
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Decryption, FailsWhenTargetOfDigestedContentCannotBeMade) {
  Protect(MakeDigested("digested"));
  target = scratch.File("no/such/place");
  EXPECT_FALSE(Decrypt());
  EXPECT_EQ(Error(), "Could not read digested content: No such file or directory");
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(Decryption, ReadsTheFirstContentKeyAlone) {
  services.Set("decryptRequest", [](const TestSupport::RecordedRequest& request) {
    TestSupport::CannedResponse response = ScriptedServices::Decrypted(request);
    response.body.insert(response.body.rfind(']'), ",7");
    return response;
  });
  ExpectDelivered(kPlain);
}

TEST_F(Decryption, NeedsAContentKeyInTheResponse) {
  const struct {
    const char* payload;
    std::vector<std::uint32_t> reported;
    const char* reason;
  } rows[] = {
      {R"({"type":"decryptResponse"})", {8, 5}, "missing"},
      {R"({"type":"decryptResponse","plainData":"a2V5"})", {8, 5}, "not a list"},
      {R"({"type":"decryptResponse","plainData":[]})", {5}, "an empty list"},
      {R"({"type":"decryptResponse","plainData":[{}]})", {5}, "not a string"},
      {R"({"type":"decryptResponse","plainData":[""]})", {}, "an empty string"},
  };
  // The crypt service's response has no "errorid", "errortext" and "plain", which is reported before.
  const std::vector<std::uint32_t> reportedBefore = {5, 5, 5};
  for (const auto& row : rows) {
    const TraceRecorder traces;
    services.Set("decryptRequest", Payload(row.payload));
    ExpectNothingDelivered();
    EXPECT_EQ(Error(), "Could not decrypt document key: Invalid plainData") << row.reason;
    std::vector<std::uint32_t> reported = reportedBefore;
    reported.insert(reported.end(), row.reported.begin(), row.reported.end());
    EXPECT_EQ(traces.GetInvalidTypes(), reported) << row.reason;
  }
}

}  // namespace
}  // namespace OruKalvix

#include "tests/support/client_internals_fixture.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using TestSupport::Ansi;
using TestSupport::Authority;
using TestSupport::Cert;
using TestSupport::CertSpec;
using TestSupport::DateResponse;
using TestSupport::EndEntity;
using TestSupport::Identity;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::LoadCert;
using TestSupport::NoExchange;
using TestSupport::Pki;
using TestSupport::ScriptedServices;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::TraceRecorder;
using TestSupport::Validity;
using TestSupport::WrappedKey;
using TestSupport::WrappedText;

class Validation : public ::testing::Test {
 protected:
  Validation() {
    TestSupport::BeginRotationAt(0);
    client.SetKeyServer(Strings({TestSupport::kKeyServerUrl}));
    Use(pki.room.certificate, pki.innerSigning.certificate);
  }

  /// The room key to check: its certificate, and the inner signing certificate in its wrapped key.
  void Use(const Cert& room, const Cert& inner) {
    roomKey.certificate = LoadCert(room);
    roomKey.data = Ansi(WrappedKey(inner));
  }
  bool Validate() { return peer.ValidateRoomKey(roomKey); }
  std::string Error() const { return Str(client.GetErrorMessage()); }
  /// The message begins like this and ends in a reason that says something.
  void ExpectReason(const std::string& beginning) const {
    EXPECT_THAT(Error(), StartsWith(beginning));
    EXPECT_GT(Error().size(), beginning.size());
    EXPECT_EQ(Error().find("Success"), std::string::npos) << Error();
  }

  const Pki& pki = Pki::Get();
  ScriptedServices services;
  CryptClient client{&services.http, TestSupport::kServiceUrl, "", "room 1"};
  CryptClientTestPeer peer{client};
  RoomKey roomKey;
};

TEST_F(Validation, AcceptsKeyThatInnerSigningCertificateIssued) {
  EXPECT_TRUE(Validate());
  EXPECT_EQ(Error(), "");
  EXPECT_THAT(services.GetSteps(), ElementsAre("status", "certstore", "truststore"));
}

TEST_F(Validation, TracesTheChainFromTheRoomKeyUpwards) {
  const TraceRecorder traces;
  ASSERT_TRUE(Validate());
  std::vector<std::string> chain = traces.GetTexts(2);
  std::erase_if(chain,
                [](const std::string& text) { return !text.starts_with("CryptClient::ValidateRoomKey"); });
  ASSERT_GE(chain.size(), 2U);
  EXPECT_EQ(chain[0], "CryptClient::ValidateRoomKey: certchain = CN=room 1-tr");
  EXPECT_EQ(chain[1], "CryptClient::ValidateRoomKey: certchain = CN=Inner signing");
}

TEST_F(Validation, FetchesTheListsAgainForEachKey) {
  ASSERT_TRUE(Validate());
  ASSERT_TRUE(Validate());
  EXPECT_EQ(services.Count("certstore"), 2U);
  EXPECT_EQ(services.Count("truststore"), 2U);
  EXPECT_EQ(services.Count("status"), 1U);
}

TEST_F(Validation, ProbesAgainUnderCertAuthBeforeItTakesTheTime) {
  peer.certAuth = true;
  ASSERT_TRUE(Validate());
  EXPECT_THAT(services.GetSteps(), ElementsAre("status", "certstore", "status", "truststore", "status"));
}

TEST_F(Validation, KeepsEarlierMessageWhenItSucceeds) {
  peer.SetError("earlier");
  ASSERT_TRUE(Validate());
  EXPECT_EQ(Error(), "earlier");
}

TEST_F(Validation, NeedsAWrappedKeyThatIsAMessage) {
  for (const char* data : {"garbage", "AAAA", "-----BEGIN CMS-----\nAAAA\n-----END CMS-----\n"}) {
    roomKey.data = data;
    EXPECT_FALSE(Validate()) << data;
    ExpectReason("Could not parse room key: ");
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Validation, NeedsWrappedKeyWithReadableContent) {
  roomKey.data = Ansi(TestSupport::ToBase64(TestSupport::MakeEnveloped("{}", {pki.room.certificate})));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not extract room key content: ");
}

TEST_F(Validation, TakesAWrappedKeyOfTheTypeData) {
  roomKey.data = Ansi(TestSupport::ToBase64(
      TestSupport::MakeData(R"({"encodedInnerSigningCertificate":)" +
                            TestSupport::Quoted(pki.innerSigning.certificate.ToBase64()) + "}")));
  EXPECT_TRUE(Validate()) << Error();
  roomKey.data = Ansi(TestSupport::ToBase64(TestSupport::MakeData("no json")));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not parse room key content: ");
}

TEST_F(Validation, NeedsJSONInTheWrappedKey) {
  for (const char* content : {"", "no json", "{\"a\":1} x"}) {
    roomKey.data = Ansi(WrappedText(content));
    EXPECT_FALSE(Validate()) << content;
    ExpectReason("Could not parse room key content: ");
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Validation, NeedsAnInnerSigningCertificateInTheWrappedKey) {
  const struct {
    const char* content;
    std::vector<std::uint32_t> reported;
    const char* reason;
  } rows[] = {
      {"\"text\"", {7, 5}, "a text"},
      {"{}", {5}, "missing"},
      {R"({"encodedInnerSigningCertificate":7})", {5}, "a number"},
      {R"({"encodedInnerSigningCertificate":""})", {}, "empty"},
      {R"({"EncodedInnerSigningCertificate":"x"})", {5}, "another case"},
  };
  for (const auto& row : rows) {
    const TraceRecorder traces;
    roomKey.data = Ansi(WrappedText(row.content));
    EXPECT_FALSE(Validate()) << row.reason;
    EXPECT_EQ(Error(), "Invalid room key: Invalid encodedInnerSigningCertificate") << row.reason;
    EXPECT_EQ(traces.GetInvalidTypes(), row.reported) << row.reason;
  }
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Validation, FindsNoInnerSigningCertificateInAnArray) {
  const TraceRecorder traces;
  roomKey.data = Ansi(WrappedText(R"(["encodedInnerSigningCertificate"])"));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Invalid room key: Invalid encodedInnerSigningCertificate");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(7U, 5U));
}

TEST_F(Validation, RefusesKeyWithoutDataAndSendsNothing) {
  roomKey.data = "";
  EXPECT_FALSE(Validate());
  ExpectReason("Could not parse room key: ");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Validation, NeedsAnInnerSigningCertificateThatCanBeRead) {
  roomKey.data = Ansi(WrappedText(R"({"encodedInnerSigningCertificate":"garbage"})"));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Invalid room key: Could not parse encodedInnerSigningCertificate");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

TEST_F(Validation, NeedsTheCertificateStore) {
  services.Set("certstore", Status(404));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "HTTP 404");
  EXPECT_EQ(services.Count("truststore"), 0U);
}

TEST_F(Validation, NeedsTheTrustStore) {
  services.Set("truststore", Status(410));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "HTTP 410");
}

TEST_F(Validation, NeedsAKeyServer) {
  client.SetKeyServer({});
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Invalid key server URL");
}

TEST_F(Validation, NeedsAReadableListOfRoots) {
  services.Set("certstore", Json("garbage"));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not parse list of root and intermediate CA certificates: ");
}

TEST_F(Validation, NeedsAReadableListOfTrustedIssuers) {
  services.Set("truststore", Json("garbage"));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not parse list of trusted issuing certificates: ");
}

TEST_F(Validation, FetchesBothListsBeforeItReadsTheFirst) {
  services.Set("certstore", Json("garbage"));
  services.Set("truststore", Json("garbage"));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not parse list of root and intermediate CA certificates: ");
  EXPECT_EQ(services.Count("truststore"), 1U);
}

TEST_F(Validation, AsksForServersTimeAfterBothLists) {
  peer.certAuth = true;
  services.Set("truststore", Json("garbage"));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(services.Count("status"), 2U);  // One for each list, and none for the time.
}

TEST_F(Validation, FailsWhenServerIsGoneBeforeItsTimeIsTaken) {
  peer.certAuth = true;
  services.Once("status", DateResponse(TestSupport::kServicesDate));
  services.Once("status", DateResponse(TestSupport::kServicesDate));
  services.Once("status", NoExchange("gone"));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Could not connect to key server: gone");
}

TEST_F(Validation, RefusesAnInnerSigningCertificateOfAnotherSystem) {
  const Identity stranger = Identity::MakeRoot(Authority("Stranger"), KeyPair::MakeEC());
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, stranger), stranger.certificate);
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

TEST_F(Validation, RefusesAnInnerSigningCertificateWhoseIssuerTheListsLack) {
  services.Set("truststore", Json(""));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

TEST_F(Validation, RefusesAnInnerSigningCertificateWhoseChainHasNoRoot) {
  services.Set("certstore", Json(pki.intermediate.certificate.ToPEM()));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

// The inner signing certificate is an end of the chain by itself once the lists have accepted it, so a limit
// on how many authorities may follow the issuing one does not reach the room key.
TEST_F(Validation, EndsTheChainOfARoomKeyAtTheInnerSigningCertificate) {
  CertSpec limited = Authority("Limited");
  limited.pathLength = 0;
  const Identity issuing = Identity::MakeIssued(limited, pki.intermediate, KeyPair::MakeEC());
  const Identity inner = Identity::MakeIssued(Authority("Inner signing"), issuing, KeyPair::MakeEC());
  services.Set("truststore", Json(issuing.certificate.ToPEM()));
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, inner), inner.certificate);
  EXPECT_TRUE(Validate()) << Error();
}

TEST_F(Validation, TakesBothListsTogether) {
  services.Set("certstore", Json(pki.root.certificate.ToPEM()));
  services.Set("truststore", Json(pki.intermediate.certificate.ToPEM() + pki.issuing.certificate.ToPEM()));
  EXPECT_TRUE(Validate()) << Error();
}

TEST_F(Validation, RefusesTheChainWhenBothListsAreEmpty) {
  services.Set("certstore", Json(""));
  services.Set("truststore", Json(""));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

TEST_F(Validation, RefusesARoomKeyThatNobodyInTheListsIssued) {
  const Identity stranger = Identity::MakeRoot(Authority("Stranger"), KeyPair::MakeEC());
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, stranger), pki.innerSigning.certificate);
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key certificate chain: ");
}

TEST_F(Validation, RefusesARoomKeyThatIsItsOwnRoot) {
  const Identity self = Identity::MakeRoot(EndEntity("room 1-tr"), pki.room.key);
  services.Set("certstore", Json(pki.GetCertStore() + self.certificate.ToPEM()));
  Use(self.certificate, pki.innerSigning.certificate);
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Could not verify room key: Invalid issuer");
}

TEST_F(Validation, RefusesARoomKeyThatATrustedAuthorityIssuedDirectly) {
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, pki.issuing), pki.innerSigning.certificate);
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Could not verify room key: Unexpected issuer");
}

TEST_F(Validation, TracesTheChainOfARoomKeyThatItRefuses) {
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, pki.issuing), pki.innerSigning.certificate);
  const TraceRecorder traces;
  EXPECT_FALSE(Validate());
  EXPECT_THAT(traces.GetTexts(2), Contains("CryptClient::ValidateRoomKey: certchain = CN=Issuing"));
}

TEST_F(Validation, JudgesTheInnerSigningCertificateBeforeTheRoomKey) {
  services.Set("status", DateResponse("Sun, 01 Jan 2045 00:00:00 GMT"));
  const Identity stranger = Identity::MakeRoot(Authority("Stranger"), KeyPair::MakeEC());
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, stranger), pki.innerSigning.certificate);
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

TEST_F(Validation, RefusesARoomKeyOfAnotherInnerSigningCertificate) {
  const Identity other = Identity::MakeIssued(Authority("Other inner"), pki.issuing, KeyPair::MakeEC());
  services.Set("truststore", Json(pki.GetTrustStore() + other.certificate.ToPEM()));
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, other), pki.innerSigning.certificate);
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(), "Could not verify room key: Unexpected issuer");
}

TEST_F(Validation, RefusesWrappedKeyWithRoomCertificateAsInnerOne) {
  Use(pki.room.certificate, pki.room.certificate);
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

TEST_F(Validation, UsesServersClockForRoomKey) {
  CertSpec spec = EndEntity("room 1-tr");
  spec.validity = Validity::FromNow(-3600, 3600);
  Use(Cert::Issue(spec, pki.room.key, pki.innerSigning), pki.innerSigning.certificate);
  services.Set("status", DateResponse("Fri, 01 Jan 2038 00:00:00 GMT"));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key certificate chain: ");
}

TEST_F(Validation, AcceptsRoomKeyThatHasExpiredByLocalClockOnly) {
  CertSpec spec = EndEntity("room 1-tr");
  spec.validity = Validity::Between("2024-05-01", "2024-06-01");
  Use(Cert::Issue(spec, pki.room.key, pki.innerSigning), pki.innerSigning.certificate);
  EXPECT_TRUE(Validate()) << Error();
}

TEST_F(Validation, UsesServersClockForInnerSigningCertificate) {
  services.Set("status", DateResponse("Sun, 01 Jan 2045 00:00:00 GMT"));
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

TEST_F(Validation, IgnoresSignatureOfWrappedKey) {
  TestSupport::SignerSpec stranger;
  stranger.identity = Identity::MakeRoot(EndEntity("Nobody"), KeyPair::MakeEC());
  roomKey.data = Ansi(TestSupport::ToBase64(
      TestSupport::MakeSigned(R"({"encodedInnerSigningCertificate":)" +
                                  TestSupport::Quoted(pki.innerSigning.certificate.ToBase64()) + "}",
                              {stranger})));
  EXPECT_TRUE(Validate()) << Error();
}

TEST_F(Validation, RefusesAWeakRoomKey) {
  Use(Cert::Issue(EndEntity("room 1-tr"), TestSupport::MakeWeakRSA(), pki.innerSigning),
      pki.innerSigning.certificate);
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(),
            "Could not verify room key certificate chain: A certificate's RSA key has fewer than 2048 bits");
}

TEST_F(Validation, RefusesAnInnerSigningCertificateThatIsSignedWithSHA1) {
  CertSpec spec = Authority("Inner signing");
  spec.digest = "SHA1";
  const Identity inner = Identity::MakeIssued(spec, pki.issuing, KeyPair::MakeEC());
  Use(Cert::Issue(EndEntity("room 1-tr"), pki.room.key, inner), inner.certificate);
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Error(),
            "Could not verify room key issuer certificate chain: A certificate is signed with SHA-1");
}

TEST_F(Validation, LeavesTheRoomKeyAsItIs) {
  const OruGuiBase::AnsiStr data = roomKey.data;
  roomKey.room = "room 1";
  services.Set("truststore", Json("garbage"));
  EXPECT_FALSE(Validate());
  EXPECT_EQ(Str(roomKey.room), "room 1");
  EXPECT_EQ(roomKey.data, data);
  EXPECT_FALSE(roomKey.certificate.IsEmpty());
}

TEST_F(Validation, FailsWhenServerHasNoTime) {
  // A server counts as known by its entry alone, whatever that holds.
  peer.serverTimes.Set(TestSupport::kKeyServerUrl, "not a time");
  EXPECT_FALSE(Validate());
  ExpectReason("Could not verify room key issuer certificate chain: ");
}

}  // namespace
}  // namespace OruKalvix

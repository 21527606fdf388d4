#include <cctype>

#include "tests/protection/verification_fixture.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using OruGuiBase::File;
using ::testing::ElementsAre;
using TestSupport::EndEntity;
using TestSupport::Identity;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::MakeSigned;
using TestSupport::NoExchange;
using TestSupport::SignerSpec;
using TestSupport::Status;
using TestSupport::TraceRecorder;
using TestSupport::Validity;

TEST_F(Verification, ProvesTheOriginOfWhatTheGroupSigned) {
  ExpectVerified();
  EXPECT_EQ(Error(), "");
}

TEST_F(Verification, MakesAllRequestsInOrder) {
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_THAT(services.GetSteps(), ElementsAre("key", "status", "authztoken", "decryptRequest", "certstore",
                                               "truststore", "integrity"));
}

TEST_F(Verification, ProvesTheOriginOfWhatEncryptWrote) {
  bool keyErrorFlag = false;
  const File plain = scratch.Make("plain.txt", kPlain);
  ASSERT_TRUE(client.Encrypt(plain, source, keyErrorFlag)) << Error();
  ExpectVerified();
}

TEST_F(Verification, ProvesTheOriginOfALargeFileOfEncrypt) {
  bool keyErrorFlag = false;
  const std::string large(3 * 262144 + 5, 'L');
  const File plain = scratch.Make("plain.txt", large);
  ASSERT_TRUE(client.Encrypt(plain, plain, keyErrorFlag)) << Error();
  ASSERT_TRUE(client.Decrypt(plain, plain, isSigned, isVerified)) << Error();
  EXPECT_TRUE(isVerified) << Error();
  EXPECT_EQ(scratch.Read("plain.txt"), large);
}

TEST_F(Verification, VerifiesAFileInPlace) {
  target = source;
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_TRUE(isVerified) << Error();
  EXPECT_EQ(scratch.Read("protected.bin"), kPlain);
}

TEST_F(Verification, RemovesOneSignatureLayerOnly) {
  const std::string inner = MakeSigned(kPlain, {Signer()});
  ProtectMessage(MakeSigned(inner, {Signer()}));
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_TRUE(isVerified) << Error();
  EXPECT_EQ(scratch.Read("opened"), inner);
}

TEST_F(Verification, FetchesTheListsAgainForEachFile) {
  ExpectVerified();
  ExpectVerified();
  EXPECT_EQ(services.Count("certstore"), 2U);
  EXPECT_EQ(services.Count("truststore"), 2U);
  EXPECT_EQ(services.Count("integrity"), 2U);
}

TEST_F(Verification, TracesTheAttributesAndTheChain) {
  const TraceRecorder traces;
  ExpectVerified();
  std::vector<std::string> texts = traces.GetTexts(2);
  std::erase_if(texts, [](const std::string& text) { return !text.starts_with("CryptClient::Decrypt"); });
  EXPECT_THAT(texts, ElementsAre("CryptClient::DecryptFile: group=[QOB.group-1]",
                                 "CryptClient::DecryptFile: room=[room 1]",
                                 "CryptClient::DecryptFile: roomurl=[https://crypt.example/api/mx/room%201]",
                                 "CryptClient::Decrypt: certchain = CN=integrity",
                                 "CryptClient::Decrypt: certchain = CN=Issuing",
                                 "CryptClient::Decrypt: certchain = CN=Intermediate",
                                 "CryptClient::Decrypt: certchain = CN=Root"));
}

// Whoever reads the trace must not take the part before the NUL for the room.
TEST_F(Verification, TracesAnAttributeWithANulAsIncomplete) {
  const TraceRecorder traces;
  SignerSpec signer = Signer();
  for (TestSupport::AttributeSpec& attribute : signer.attributes) {
    if (attribute.oid == TestSupport::kRoomOid) attribute.value = std::string("room 1]\0b", 9);
  }
  Protect({signer});
  ASSERT_TRUE(Decrypt()) << Error();
  EXPECT_THAT(traces.GetTexts(2),
              ::testing::Contains("CryptClient::DecryptFile: room=[room 1]] up to a NUL byte"));
}

// ---- With a plain room key

TEST_F(Verification, ChecksTheSignatureAloneWithAPlainKey) {
  HandOutPlainKey();
  ExpectVerified();
  EXPECT_THAT(services.GetSteps(), ElementsAre("key"));
}

TEST_F(Verification, TakesAnySignerWhoseSignatureHoldsWithAPlainKey) {
  HandOutPlainKey();
  SignerSpec stranger;
  stranger.identity = Identity::MakeRoot(EndEntity("Nobody"), KeyPair::MakeEC());
  Protect({stranger});
  ExpectVerified();
}

TEST_F(Verification, RefusesABrokenSignatureWithAPlainKey) {
  HandOutPlainKey();
  std::string inner = MakeSigned(kPlain, {Signer()});
  inner.back() = static_cast<char>(inner.back() ^ 1);
  ProtectMessage(inner);
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, RefusesChangedContentWithAPlainKey) {
  HandOutPlainKey();
  std::string inner = MakeSigned(kPlain, {Signer()});
  inner[inner.find(kPlain)] = 'T';
  ProtectMessage(inner);
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, RefusesAMessageThatNobodySignedWithAPlainKey) {
  HandOutPlainKey();
  ProtectMessage(TestSupport::MakeUnsigned(kPlain, Signer()));
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, FailsWhenTargetCannotBeMadeWithPlainKey) {
  HandOutPlainKey();
  target = scratch.File("no/such/place");
  EXPECT_FALSE(Decrypt());
  EXPECT_TRUE(isSigned);
  EXPECT_FALSE(isVerified);
  EXPECT_EQ(Error(), "Could not read signed content: No such file or directory");
}

// ---- What stops the delivery

TEST_F(Verification, NeedsTheCertificateStore) {
  services.Set("certstore", Status(404));
  ExpectRefused();
  EXPECT_EQ(Error(), "HTTP 404");
  EXPECT_EQ(services.Count("truststore"), 0U);
}

TEST_F(Verification, NeedsTheTrustStore) {
  services.Set("truststore", NoExchange("gone"));
  ExpectRefused();
  EXPECT_EQ(Error(), "gone");
}

TEST_F(Verification, NeedsAReadableListOfRoots) {
  services.Set("certstore", Json("garbage"));
  ExpectRefused();
  ExpectReason("Could not parse list of root and intermediate CA certificates: ");
}

TEST_F(Verification, NeedsAReadableListOfTrustedIssuers) {
  services.Set("truststore", Json("garbage"));
  ExpectRefused();
  ExpectReason("Could not parse list of trusted issuing certificates: ");
}

TEST_F(Verification, ReadsTheListOfRootsBeforeTheListOfTrustedIssuers) {
  services.Set("certstore", Json("garbage"));
  services.Set("truststore", Json("garbage"));
  ExpectRefused();
  ExpectReason("Could not parse list of root and intermediate CA certificates: ");
  EXPECT_EQ(services.Count("truststore"), 1U);
}

TEST_F(Verification, NeedsTrustedIssuerBeforeSignatureIsChecked) {
  services.Set("truststore", Json(""));
  std::string inner = MakeSigned(kPlain, {Signer()});
  inner.back() = static_cast<char>(inner.back() ^ 1);
  ProtectMessage(inner);
  ExpectRefused();
  EXPECT_EQ(Error(), "No trusted issuing certificates");
}

TEST_F(Verification, RefusesABrokenSignature) {
  std::string inner = MakeSigned(kPlain, {Signer()});
  inner.back() = static_cast<char>(inner.back() ^ 1);
  ProtectMessage(inner);
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
  EXPECT_EQ(services.Count("integrity"), 0U);
}

TEST_F(Verification, RefusesChangedContent) {
  std::string inner = MakeSigned(kPlain, {Signer()});
  inner[inner.find(kPlain)] = 'T';
  ProtectMessage(inner);
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, RefusesAMessageThatNobodySigned) {
  ProtectMessage(TestSupport::MakeUnsigned(kPlain, Signer()));
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, RefusesASignerOutsideTheLists) {
  const Identity stranger = Identity::MakeRoot(EndEntity("Nobody"), KeyPair::MakeRSA());
  ListIntegrity({stranger.certificate});
  Protect({SignerOf(stranger)});
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, RefusesMessageWithoutSignersCertificate) {
  SignerSpec signer = Signer();
  signer.hasCertificate = false;
  Protect({signer});
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, RefusesASignerWithAWeakKey) {
  const Identity weak = Identity::MakeIssued(EndEntity("integrity"), pki.issuing, TestSupport::MakeWeakRSA());
  ListIntegrity({weak.certificate});
  Protect({SignerOf(weak)});
  ExpectRefused();
  EXPECT_EQ(Error(), "Could not verify signature: A signer's RSA key has fewer than 2048 bits");
  HandOutPlainKey();
  ExpectRefused();
}

TEST_F(Verification, RefusesASignerWhoseCertificateIsSignedWithSHA1) {
  TestSupport::CertSpec spec = EndEntity("integrity");
  spec.digest = "SHA1";
  const Identity weak = Identity::MakeIssued(spec, pki.issuing);
  ListIntegrity({weak.certificate});
  Protect({SignerOf(weak)});
  ExpectRefused();
  EXPECT_EQ(Error(), "Could not verify signature: A certificate is signed with SHA-1");
}

TEST_F(Verification, RefusesASignerWhoseCertificateWasNotValidYet) {
  SignerSpec signer = Signer();
  signer.signingTime = Validity::Between("2019-01-01", "2019-01-02").notBefore;
  Protect({signer});
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

TEST_F(Verification, FailsWhenTargetCannotBeMade) {
  target = scratch.File("no/such/place");
  EXPECT_FALSE(Decrypt());
  EXPECT_TRUE(isSigned);
  EXPECT_FALSE(isVerified);
  EXPECT_EQ(Error(), "Could not read signed content: No such file or directory");
  EXPECT_EQ(services.Count("integrity"), 0U);
}

}  // namespace
}  // namespace OruKalvix

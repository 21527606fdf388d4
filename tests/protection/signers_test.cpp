#include <cctype>

#include "roomkeys/cert_text.h"
#include "security/certstore.h"
#include "security/cmsmsg.h"
#include "tests/protection/verification_fixture.h"
#include "tests/support/no_digests.h"
#include "tests/support/test_peer.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using TestSupport::AttributeSpec;
using TestSupport::Authority;
using TestSupport::CertSpec;
using TestSupport::EndEntity;
using TestSupport::Identity;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::MakeSigned;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::SignerSpec;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;
using TestSupport::Validity;

// ---- What only leaves the origin unproven

TEST_F(Verification, DoubtsSignersThatCannotBeRead) {
  SignerSpec signer = Signer();
  signer.attributes.push_back(signer.attributes[0]);
  Protect({signer});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not read signer information");
}

TEST_F(Verification, DoubtsASignerWithoutGroup) {
  SignerSpec signer = Signer();
  signer.attributes.erase(signer.attributes.begin());
  Protect({signer});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not determine group of signer");
  EXPECT_EQ(services.Count("integrity"), 0U);
}

TEST_F(Verification, DoubtsASignerWithAnEmptyGroup) {
  ProtectGroup({TestSupport::kGroupOid, ""});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not determine group of signer");
}

TEST_F(Verification, DoubtsSignerWhoseGroupCannotBeFetched) {
  services.Set("integrity", Status(404));
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not get integrity certificates: HTTP 404");
}

TEST_F(Verification, DoubtsASignerThatTheGroupDoesNotList) {
  for (const char* list : {"[]", R"(["00"])", R"("none")", R"(["",null,7])"}) {
    services.Set("integrity", Json(R"({"integrity":)" + std::string(list) + "}"));
    ExpectDoubted();
    EXPECT_EQ(Error(), "Could not find a matching integrity certificate") << list;
  }
}

TEST_F(Verification, MatchesADigestWhateverItsCase) {
  std::string digest = pki.integrity.certificate.GetDigest();
  for (char& character : digest)
    character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
  ASSERT_NE(digest, pki.integrity.certificate.GetDigest());
  services.Set("integrity", Json(R"({"integrity":[)" + Quoted(digest) + "]}"));
  ExpectVerified();
}

TEST_F(Verification, MatchesNoPartOfDigest) {
  const std::string digest = pki.integrity.certificate.GetDigest();
  services.Set("integrity",
               Json(R"({"integrity":[)" + Quoted(digest.substr(0, 63)) + "," + Quoted(digest + "0") + "]}"));
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not find a matching integrity certificate");
}

TEST_F(Verification, IgnoresListElementThatIsNotString) {
  const TraceRecorder traces;
  services.Set("integrity",
               Json(R"({"integrity":[7,"00",)" + Quoted(pki.integrity.certificate.GetDigest()) + ",8]}"));
  ExpectVerified();
  // The crypt service's response of this flow lacks "errorid", "errortext" and "plain"; the fourth is the 7.
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U, 5U, 5U));
}

TEST_F(Verification, AsksForTheGroupThatTheMessageNames) {
  ProtectGroup({TestSupport::kGroupOid, "QOB.another/group"});
  ExpectVerified();
  const RecordedRequest request = services.GetRequests("integrity")[0];
  EXPECT_THAT(request.url, EndsWith("/crypt/certlist/QOB.another%2Fgroup/integrity/sha256"));
  EXPECT_EQ(request.body, R"({"keyserver":"https://one.example"})");
}

TEST_F(Verification, NormalisesTheGroup) {
  const struct {
    AttributeSpec group;
    const char* segment;
    const char* reason;
  } rows[] = {
      {{TestSupport::kGroupOid, "QOB.g"}, "QOB.g", "as it stands"},
      {{TestSupport::kGroupOid, "QOB."}, "QOB.", "nothing after the beginning"},
      {{TestSupport::kGroupOid, "514F42\r\n2E67"}, "QOB.g", "a line end inside"},
      {{TestSupport::kGroupOid, "QOB.g", false}, "QOB.g", "an octet string, which comes as hexadecimal"},
      {{TestSupport::kGroupOid, "78797A"}, "xyz", "hexadecimal of another text"},
      {{TestSupport::kGroupOid, "qob.g"}, "qob.g", "another case is no hexadecimal"},
      {{TestSupport::kGroupOid, "616"}, "616", "an odd number of digits"},
      {{TestSupport::kGroupOid, "7"}, "7", "one digit"},
      {{TestSupport::kGroupOid, ".."}, "..", "what a path would take for the folder above"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reason);
    ProtectGroup(row.group);
    ExpectVerified();
    ExpectGroupAsked(row.segment);
  }
}

TEST_F(Verification, DecodesHexadecimalGroup) {
  ProtectGroup({TestSupport::kGroupOid, "514f422E67"});
  ExpectVerified();
  ExpectGroupAsked("QOB.g");
}

TEST_F(Verification, DecodesGroupOfThreeCharactersOrFewer) {
  ProtectGroup({TestSupport::kGroupOid, "61"});
  ExpectVerified();
  ExpectGroupAsked("a");
  ProtectGroup({TestSupport::kGroupOid, "QOB"});
  ExpectVerified();
  ExpectGroupAsked("QOB");
}

TEST_F(Verification, RequestsGroupThatIsNotHexadecimalUnchanged) {
  ProtectGroup({TestSupport::kGroupOid, "group one"});
  ExpectVerified();
  ExpectGroupAsked("group%20one");
}

TEST_F(Verification, TracesTheGroupAsItWasRead) {
  ProtectGroup({TestSupport::kGroupOid, "514F422E67"});
  const TraceRecorder traces;
  ExpectVerified();
  EXPECT_THAT(traces.GetTexts(2), Contains("CryptClient::DecryptFile: group=[514F422E67]"));
}

TEST_F(Verification, IgnoresValuesOfRoomAndRoomUrl) {
  SignerSpec signer = Signer();
  signer.attributes[1].value = "another room";
  signer.attributes[2].value = "nowhere";
  Protect({signer});
  ExpectVerified();
  signer.attributes.resize(1);
  Protect({signer});
  ExpectVerified();
}

TEST_F(Verification, LooksForCertificateInListBeforeItsChain) {
  const Identity sub = Identity::MakeIssued(Authority("Sub"), pki.issuing, KeyPair::MakeEC());
  const Identity integrity = Identity::MakeIssued(EndEntity("integrity"), sub, KeyPair::MakeRSA());
  SignerSpec signer = SignerOf(integrity);
  signer.more = {sub.certificate};
  Protect({signer});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not find a matching integrity certificate");
}

TEST_F(Verification, AcceptsASignerThatHasExpiredSinceItSigned) {
  CertSpec spec = EndEntity("integrity");
  spec.validity = Validity::Between("2024-05-01", "2024-06-01");
  const Identity expired = Identity::MakeIssued(spec, pki.issuing, KeyPair::MakeRSA());
  ListIntegrity({expired.certificate});
  Protect({SignerOf(expired)});
  ExpectVerified();
}

TEST_F(Verification, DoubtsASignerWhoseIssuerOnlyTheMessageHolds) {
  const Identity sub = Identity::MakeIssued(Authority("Sub"), pki.issuing, KeyPair::MakeEC());
  const Identity integrity = Identity::MakeIssued(EndEntity("integrity"), sub, KeyPair::MakeRSA());
  ListIntegrity({integrity.certificate});
  SignerSpec signer = SignerOf(integrity);
  signer.more = {sub.certificate};
  Protect({signer});
  ExpectDoubted();
  ExpectReason("Could not verify integrity certificate chain: ");
}

TEST_F(Verification, DoubtsASignerThatIssuedItself) {
  const Identity self = Identity::MakeRoot(EndEntity("integrity"), KeyPair::MakeRSA());
  services.Set("certstore", Json(pki.GetCertStore() + self.certificate.ToPEM()));
  ListIntegrity({self.certificate});
  Protect({SignerOf(self)});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not verify integrity certificate: Invalid issuer");
}

TEST_F(Verification, DoubtsASignerOfAnIntermediateThatIsNotTrustedToIssue) {
  const Identity integrity =
      Identity::MakeIssued(EndEntity("integrity"), pki.intermediate, KeyPair::MakeRSA());
  ListIntegrity({integrity.certificate});
  Protect({SignerOf(integrity)});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Untrusted integrity certificate issuer: CN=Intermediate");
}

TEST_F(Verification, DoubtsASignerWhoseTrustedIssuerIsTooFarAbove) {
  const Identity sub = Identity::MakeIssued(Authority("Sub"), pki.issuing, KeyPair::MakeEC());
  const Identity integrity = Identity::MakeIssued(EndEntity("integrity"), sub, KeyPair::MakeRSA());
  services.Set("certstore", Json(pki.GetCertStore() + sub.certificate.ToPEM()));
  ListIntegrity({integrity.certificate});
  Protect({SignerOf(integrity)});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Untrusted integrity certificate issuer: CN=Sub");
}

// ---- Several signers, which a message keeps in the order of their encoding: the longer one is the second

class TwoSigners : public Verification {
 protected:
  TwoSigners() : other(Identity::MakeIssued(EndEntity("second"), pki.issuing, KeyPair::MakeRSA())) {
    ListIntegrity({pki.integrity.certificate, other.certificate});
  }
  SignerSpec Second() const {
    SignerSpec signer = SignerOf(other, "QOB.second");
    signer.attributes[1].value = std::string(100, 'r');
    return signer;
  }
  std::string GroupUrl(const char* group) const {
    return std::string("/crypt/certlist/") + group + "/integrity/sha256";
  }

  Identity other;
};

TEST_F(TwoSigners, BothHaveToPass) {
  Protect({Signer(), Second()});
  ExpectVerified();
  ASSERT_EQ(services.Count("integrity"), 2U);
  EXPECT_THAT(services.GetRequests("integrity")[0].url, EndsWith(GroupUrl("QOB.group-1")));
  EXPECT_THAT(services.GetRequests("integrity")[1].url, EndsWith(GroupUrl("QOB.second")));
}

TEST_F(TwoSigners, AreDoubtedForTheSecond) {
  services.Set("integrity", [this](const RecordedRequest& request) {
    const bool isFirst = request.url.find("QOB.group-1") != std::string::npos;
    return isFirst ? Json(R"({"integrity":[)" + Quoted(pki.integrity.certificate.GetDigest()) + "]}")
                   : Status(404);
  });
  Protect({Signer(), Second()});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not get integrity certificates: HTTP 404");
  EXPECT_EQ(services.Count("integrity"), 2U);
}

TEST_F(TwoSigners, AreDoubtedForFirstWithoutCheckOfSecond) {
  ListIntegrity({other.certificate});
  Protect({Signer(), Second()});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not find a matching integrity certificate");
  EXPECT_EQ(services.Count("integrity"), 1U);
}

TEST_F(Verification, ExaminesAsManySignersAsTheLimit) {
  ProtectBy(OruOssSec::CMSLimits::kSigners);
  ExpectVerified();
  EXPECT_EQ(services.Count("integrity"), OruOssSec::CMSLimits::kSigners);
}

// A message with more signers is neither examined nor taken for plain content.
TEST_F(Verification, RefusesMoreSignersThanTheLimitBeforeItAsksForLists) {
  ProtectBy(OruOssSec::CMSLimits::kSigners + 1);
  scratch.Make("opened", "as before");
  EXPECT_FALSE(Decrypt());
  EXPECT_EQ(Error(), "Could not decrypt file: The message has too many signers");
  EXPECT_FALSE(isSigned);
  EXPECT_FALSE(isVerified);
  EXPECT_EQ(scratch.Read("opened"), "as before");
  EXPECT_EQ(services.Count("integrity") + services.Count("certstore") + services.Count("truststore"), 0U);
}

TEST_F(TwoSigners, AreRefusedForOneSignatureThatDoesNotHold) {
  std::string inner = MakeSigned(kPlain, {Signer(), Second()});
  inner.back() = static_cast<char>(inner.back() ^ 1);
  ProtectMessage(inner);
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

// ---- What a verified message cannot show any more

class SignerChecks : public TestSupport::ServicesTest {
 protected:
  SignerChecks() {
    signer.certificate = TestSupport::LoadCert(pki.integrity.certificate);
    signer.signedAttributes.Set(TestSupport::kGroupOid, TestSupport::kGroup);
  }

  OruOssSec::CMSSigner signer;
  CryptClientTestPeer peer{client};
};

// The check of a signer, which the other tests of this group make fail, passes with all in order.
TEST_F(SignerChecks, PassWithTheGroupsCertificate) {
  EXPECT_TRUE(peer.CheckSignerGroup(signer)) << Error();
}

TEST_F(SignerChecks, NeedACertificate) {
  const TraceRecorder traces;
  signer.certificate.Clear();
  EXPECT_FALSE(peer.CheckSignerGroup(signer));
  EXPECT_EQ(Error(), "Invalid signer certificate");
  EXPECT_TRUE(traces.GetTexts(2).empty());
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

// A signer whose certificate gives no digest is doubted before the crypt service is asked.
TEST_F(SignerChecks, NeedTheDigestOfTheCertificate) {
  const TestSupport::NoDigests without;
  EXPECT_FALSE(peer.CheckSignerGroup(signer));
  EXPECT_EQ(Error(), "Could not determine signer certificate digest");
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

// The digest is the certificate's SHA-256 in hexadecimal, and empty for no certificate.
TEST_F(SignerChecks, TakeTheDigestInHexadecimal) {
  const auto digest = [](const OruOssSec::Certificate& certificate) {
    return Str(GetCertDigest(certificate, OruOssSec::SecDigest::SHA256, OruOssSec::SecEncoding::HexLower));
  };
  EXPECT_EQ(digest(signer.certificate), pki.integrity.certificate.GetDigest());
  EXPECT_EQ(digest(OruOssSec::Certificate()), "");
}

// The subject of a certificate is empty for no certificate.
TEST_F(SignerChecks, TakeTheSubjectAsText) {
  EXPECT_EQ(Str(GetCertSubject(signer.certificate)), "CN=integrity");
  EXPECT_EQ(Str(GetCertSubject(OruOssSec::Certificate())), "");
}

TEST_F(SignerChecks, ReportMissingGroupBeforeDigest) {
  signer.signedAttributes = OruGuiBase::KVMap();
  const TestSupport::NoDigests without;
  EXPECT_FALSE(peer.CheckSignerGroup(signer));
  EXPECT_EQ(Error(), "Could not determine group of signer");
}

// A hexadecimal group of line ends alone decodes to the empty string.
TEST_F(SignerChecks, AskWithoutAGroupWhenItDecodesToNothing) {
  signer.signedAttributes.Set(TestSupport::kGroupOid, "\r\n");
  TestSupport::ScriptedHttp http;
  http.Then(Json("{}"));
  CryptClient other(&http, TestSupport::kServiceUrl, "", "room 1");
  EXPECT_FALSE(CryptClientTestPeer(other).CheckSignerGroup(signer));
  EXPECT_THAT(http.GetLines(), ElementsAre("POST https://crypt.example/api/crypt/certlist"));
  EXPECT_EQ(Str(other.GetErrorMessage()), "Could not find a matching integrity certificate");
}

// The verification before this refuses a message without signers; the check itself finds nobody to doubt.
TEST_F(SignerChecks, PassWithoutSigners) {
  SignerSpec removed;
  removed.identity = pki.integrity;
  OruOssSec::CMSMsg message;
  ASSERT_TRUE(message.Load(scratch.Make("unsigned", TestSupport::MakeUnsigned("content", removed))));
  EXPECT_TRUE(peer.CheckSigners(message, {}, {}));
  EXPECT_EQ(services.http.GetRequestCount(), 0U);
}

}  // namespace
}  // namespace OruKalvix

#include <cctype>

#include "tests/protection/verificationtest.h"
#include "tests/support/tracerecorder.h"

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
using TestSupport::MakeShortRSA;
using TestSupport::MakeSigned;
using TestSupport::Quoted;
using TestSupport::RecordedRequest;
using TestSupport::SignerSpec;
using TestSupport::Status;
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
  EXPECT_EQ(road.Count("integrity"), 0U);
}

TEST_F(Verification, DoubtsASignerWithAnEmptyGroup) {
  ProtectGroup({TestSupport::kGroupOid, ""});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not determine group of signer");
}

TEST_F(Verification, DoubtsASignerWhoseGroupIsNotToBeHad) {
  road.Set("integrity", Status(404));
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not get integrity certificates: HTTP 404");
}

TEST_F(Verification, DoubtsASignerThatTheGroupDoesNotList) {
  for (const char* list : {"[]", R"(["00"])", R"("none")", R"(["",null,7])"}) {
    road.Set("integrity", Json(R"({"integrity":)" + std::string(list) + "}"));
    ExpectDoubted();
    EXPECT_EQ(Error(), "Could not find a matching integrity certificate") << list;
  }
}

TEST_F(Verification, MatchesADigestWhateverItsCase) {
  std::string digest = pki.integrity.certificate.GetDigest();
  for (char& character : digest)
    character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
  ASSERT_NE(digest, pki.integrity.certificate.GetDigest());
  road.Set("integrity", Json(R"({"integrity":[)" + Quoted(digest) + "]}"));
  ExpectVerified();
}

TEST_F(Verification, MatchesNoDigestThatIsOnlyAPart) {
  const std::string digest = pki.integrity.certificate.GetDigest();
  road.Set("integrity",
           Json(R"({"integrity":[)" + Quoted(digest.substr(0, 63)) + "," + Quoted(digest + "0") + "]}"));
  ExpectDoubted();
}

TEST_F(Verification, PassesOverAnElementThatIsNoText) {
  const TraceRecorder traces;
  road.Set("integrity",
           Json(R"({"integrity":[7,"00",)" + Quoted(pki.integrity.certificate.GetDigest()) + ",8]}"));
  ExpectVerified();
  // The crypt service's answer of this road lacks "errorid", "errortext" and "plain"; the fourth is the 7.
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U, 5U, 5U, 5U));
}

TEST_F(Verification, AsksForTheGroupThatTheMessageNames) {
  ProtectGroup({TestSupport::kGroupOid, "QOB.another/group"});
  ExpectVerified();
  const RecordedRequest request = road.GetRequests("integrity")[0];
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
      {{TestSupport::kGroupOid, "QOB."}, "QOB.", "nothing behind the beginning"},
      {{TestSupport::kGroupOid, "514f422E67"}, "QOB.g", "hexadecimal of either case"},
      {{TestSupport::kGroupOid, "514F42\r\n2E67"}, "QOB.g", "a line end inside"},
      {{TestSupport::kGroupOid, "QOB.g", false}, "QOB.g", "an octet string, which comes as hexadecimal"},
      {{TestSupport::kGroupOid, "78797A"}, "xyz", "hexadecimal of another text"},
      {{TestSupport::kGroupOid, "qob.g"}, "qob.g", "another case is no hexadecimal"},
      {{TestSupport::kGroupOid, "QOB"}, "QOB", "too short to begin right"},
      {{TestSupport::kGroupOid, "616"}, "616", "an odd number of digits"},
      {{TestSupport::kGroupOid, "61"}, "a", "two digits"},
      {{TestSupport::kGroupOid, "7"}, "7", "one digit"},
      {{TestSupport::kGroupOid, ".."}, "..", "what a path would take for the folder above"},
  };
  for (const auto& row : rows) {
    ProtectGroup(row.group);
    ExpectVerified();
    EXPECT_THAT(road.GetRequests("integrity").back().url,
                EndsWith("/crypt/certlist/" + std::string(row.segment) + "/integrity/sha256"))
        << row.reason;
  }
}

TEST_F(Verification, TracesTheGroupAsItWasRead) {
  ProtectGroup({TestSupport::kGroupOid, "514F422E67"});
  const TraceRecorder traces;
  ExpectVerified();
  EXPECT_THAT(traces.GetTexts(2), Contains("CryptClient::DecryptFile: group=[514F422E67]"));
}

TEST_F(Verification, ComparesRoomAndRoomUrlWithNothing) {
  SignerSpec signer = Signer();
  signer.attributes[1].value = "another room";
  signer.attributes[2].value = "nowhere";
  Protect({signer});
  ExpectVerified();
  signer.attributes.resize(1);
  Protect({signer});
  ExpectVerified();
}

TEST_F(Verification, AcceptsASignerThatHasExpiredSinceItSigned) {
  CertSpec spec = EndEntity("integrity");
  spec.validity = Validity::Between("2024-05-01", "2024-06-01");
  const Identity expired = Identity::MakeIssued(spec, pki.issuing, MakeShortRSA());
  ListIntegrity({expired.certificate});
  Protect({SignerOf(expired)});
  ExpectVerified();
}

TEST_F(Verification, DoubtsASignerWhoseIssuerOnlyTheMessageHolds) {
  const Identity sub = Identity::MakeIssued(Authority("Sub"), pki.issuing, KeyPair::MakeEC());
  const Identity integrity = Identity::MakeIssued(EndEntity("integrity"), sub, MakeShortRSA());
  ListIntegrity({integrity.certificate});
  SignerSpec signer = SignerOf(integrity);
  signer.more = {sub.certificate};
  Protect({signer});
  ExpectDoubted();
  ExpectReason("Could not verify integrity certificate chain: ");
}

TEST_F(Verification, DoubtsASignerThatIssuedItself) {
  const Identity self = Identity::MakeRoot(EndEntity("integrity"), MakeShortRSA());
  road.Set("certstore", Json(pki.GetCertStore() + self.certificate.ToPEM()));
  ListIntegrity({self.certificate});
  Protect({SignerOf(self)});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not verify integrity certificate: Invalid issuer");
}

TEST_F(Verification, DoubtsASignerOfAnIntermediateThatIsNotTrustedToIssue) {
  const Identity integrity = Identity::MakeIssued(EndEntity("integrity"), pki.intermediate, MakeShortRSA());
  ListIntegrity({integrity.certificate});
  Protect({SignerOf(integrity)});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Untrusted integrity certificate issuer: CN=Intermediate");
}

TEST_F(Verification, DoubtsASignerWhoseTrustedIssuerIsTooFarAbove) {
  const Identity sub = Identity::MakeIssued(Authority("Sub"), pki.issuing, KeyPair::MakeEC());
  const Identity integrity = Identity::MakeIssued(EndEntity("integrity"), sub, MakeShortRSA());
  road.Set("certstore", Json(pki.GetCertStore() + sub.certificate.ToPEM()));
  ListIntegrity({integrity.certificate});
  Protect({SignerOf(integrity)});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Untrusted integrity certificate issuer: CN=Sub");
}

// ---- Several signers, which a message keeps in the order of their encoding: the longer one is the second

class TwoSigners : public Verification {
 protected:
  TwoSigners() : other(Identity::MakeIssued(EndEntity("second"), pki.issuing, MakeShortRSA())) {
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
  ASSERT_EQ(road.Count("integrity"), 2U);
  EXPECT_THAT(road.GetRequests("integrity")[0].url, EndsWith(GroupUrl("QOB.group-1")));
  EXPECT_THAT(road.GetRequests("integrity")[1].url, EndsWith(GroupUrl("QOB.second")));
}

TEST_F(TwoSigners, AreDoubtedForTheSecond) {
  road.Set("integrity", [this](const RecordedRequest& request) {
    const bool isFirst = request.url.find("QOB.group-1") != std::string::npos;
    return isFirst ? Json(R"({"integrity":[)" + Quoted(pki.integrity.certificate.GetDigest()) + "]}")
                   : Status(404);
  });
  Protect({Signer(), Second()});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not get integrity certificates: HTTP 404");
  EXPECT_EQ(road.Count("integrity"), 2U);
}

TEST_F(TwoSigners, AreDoubtedForTheFirstWithoutALookAtTheSecond) {
  ListIntegrity({other.certificate});
  Protect({Signer(), Second()});
  ExpectDoubted();
  EXPECT_EQ(Error(), "Could not find a matching integrity certificate");
  EXPECT_EQ(road.Count("integrity"), 1U);
}

TEST_F(TwoSigners, AreRefusedForOneSignatureThatDoesNotHold) {
  std::string inner = MakeSigned(kPlain, {Signer(), Second()});
  inner.back() = static_cast<char>(inner.back() ^ 1);
  ProtectMessage(inner);
  ExpectRefused();
  ExpectReason("Could not verify signature: ");
}

}  // namespace
}  // namespace OruKalvix

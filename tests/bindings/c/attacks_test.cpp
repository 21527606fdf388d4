#include <string>
#include <tuple>

#include "tests/bindings/c/environment_fixture.h"
#include "tests/bindings/c/scripted_fixture.h"

namespace CInterface {
namespace {

using ::testing::HasSubstr;
using TestSupport::MakeSigned;

constexpr const char* kContent = "the plain bytes of a file";

// Each single bit of a protected file, flipped. Nothing authenticates the envelope's own header, so a few
// flips leave content and proof as they were; no flip delivers anything else.
TEST_F(EnvironmentTest, NoFlippedBitDeliversAnythingElse) {
  Protect(kContent);
  const std::string original = scratch.Read("secret");
  std::size_t delivered = 0;
  for (std::size_t byte = 0; byte < original.size(); byte += 7) {
    std::string flipped = original;
    flipped[byte] = static_cast<char>(flipped[byte] ^ (1 << (byte % 8)));
    scratch.Make("flipped", flipped);
    scratch.Make("opened", "as before");
    const Outcome outcome = Decrypt("flipped", "opened");
    if (outcome.status == CRYPTCLI_OK) {
      ++delivered;
      EXPECT_EQ(scratch.Read("opened"), kContent) << "byte " << byte;
      EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_PROVEN) << "byte " << byte;
    } else {
      EXPECT_EQ(scratch.Read("opened"), "as before") << "byte " << byte;
    }
  }
  EXPECT_LT(delivered, 10U);
}

using Attacks = ScriptedTest;

// Anybody who has the room's certificate can make these.
TEST_F(Attacks, UnsignedContentInAnEnvelopeIsRefused) {
  Envelope(kContent);
  scratch.Make("opened", "as before");
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN);
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_UNSIGNED);
  EXPECT_THAT(outcome.Message(), HasSubstr("The content is not signed"));
  EXPECT_EQ(scratch.Read("opened"), "as before");
}

TEST_F(Attacks, ASelfSignedSignatureIsRefused) {
  TestSupport::SignerSpec forger = Signer();
  forger.identity = TestSupport::Identity::MakeRoot(TestSupport::EndEntity("Forger"));
  Envelope(MakeSigned(kContent, {forger}));
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_UNPROVEN);
  EXPECT_FALSE(scratch.Exists("opened"));
}

TEST_F(Attacks, ASelfSignedSignatureUnderAPlainKeyIsRefused) {
  TestSupport::SignerSpec forger = Signer();
  forger.identity = TestSupport::Identity::MakeRoot(TestSupport::EndEntity("Forger"));
  Envelope(MakeSigned(kContent, {forger}));
  HandOutPlainKey();
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_SIGNATURE_ONLY);
  EXPECT_EQ(cryptcli_report_is_plain_key(outcome.report.get()), 1);
  EXPECT_FALSE(scratch.Exists("opened"));
}

TEST_F(Attacks, ContentSignedForAnotherRoomIsRefused) {
  Envelope(MakeSigned(kContent, {Signer("room 2")}));
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_OTHER_ROOM);
  EXPECT_STREQ(cryptcli_report_signed_room(outcome.report.get()), "room 2");
  EXPECT_THAT(outcome.Message(), HasSubstr("Signed for room \"room 2\""));
}

TEST_F(Attacks, ContentSignedForAnotherGroupIsRefused) {
  Envelope(MakeSigned(kContent, {Signer(kScriptedRoom, "QOB.other")}));
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_OTHER_ROOM);
}

TEST_F(Attacks, EachSignerHasToSignForTheRoom) {
  TestSupport::SignerSpec second = Signer("room 2");
  second.hasCertificate = false;  // the message holds it once
  Envelope(MakeSigned(kContent, {Signer(), second}));
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_OTHER_ROOM);
}

TEST_F(Attacks, AGroupInHexadecimalFormIsTheGroup) {
  std::string hex;
  for (const char byte : std::string(TestSupport::kGroup)) {
    constexpr const char* kDigits = "0123456789abcdef";
    hex += kDigits[static_cast<unsigned char>(byte) >> 4];
    hex += kDigits[byte & 15];
  }
  Envelope(MakeSigned(kContent, {Signer(kScriptedRoom, hex)}));
  const Outcome outcome = Open();
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_STREQ(cryptcli_report_signed_group(outcome.report.get()), TestSupport::kGroup);
}

TEST_F(Attacks, ADamagedSignatureIsAnErrorUnderEveryPolicy) {
  std::string message = MakeSigned(kContent, {Signer()});
  message[message.find(kContent)] ^= 1;
  Envelope(message);
  Accept(CRYPTCLI_ACCEPT_ANYTHING);
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_DAMAGED) << outcome.Message();
  EXPECT_EQ(outcome.report, nullptr);
  EXPECT_FALSE(scratch.Exists("opened"));
}

// ---- The table of origins and policies

using Row = std::tuple<cryptcli_origin, cryptcli_policy>;
class Policy : public ScriptedTest, public ::testing::WithParamInterface<Row> {
 protected:
  void Make(cryptcli_origin origin) {
    switch (origin) {
      case CRYPTCLI_ORIGIN_UNSIGNED:
        return Envelope(kContent);
      case CRYPTCLI_ORIGIN_UNPROVEN:
        services.Set("integrity", TestSupport::Status(404));
        return Envelope(MakeSigned(kContent, {Signer()}));
      case CRYPTCLI_ORIGIN_SIGNATURE_ONLY:
        HandOutPlainKey();
        return Envelope(MakeSigned(kContent, {Signer()}));
      case CRYPTCLI_ORIGIN_OTHER_ROOM:
        return Envelope(MakeSigned(kContent, {Signer("room 2")}));
      default:
        return Envelope(MakeSigned(kContent, {Signer()}));
    }
  }
};

TEST_P(Policy, DeliversWhatItAcceptsAndNothingElse) {
  const auto [origin, policy] = GetParam();
  Make(origin);
  Accept(policy);
  scratch.Make("opened", "as before");
  const Outcome outcome = Open();
  // Each policy accepts one origin more; the last one the two weakest.
  const bool accepted = policy == CRYPTCLI_ACCEPT_ANYTHING || origin + policy >= CRYPTCLI_ORIGIN_PROVEN;
  EXPECT_EQ(outcome.status, accepted ? CRYPTCLI_OK : CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  ASSERT_NE(outcome.report, nullptr);
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), origin);
  EXPECT_EQ(scratch.Read("opened"), accepted ? kContent : "as before");
  EXPECT_EQ(Verify("secret", kScriptedRoom).status, outcome.status);
}

INSTANTIATE_TEST_SUITE_P(
    Origins, Policy,
    ::testing::Combine(::testing::Values(CRYPTCLI_ORIGIN_UNSIGNED, CRYPTCLI_ORIGIN_UNPROVEN,
                                         CRYPTCLI_ORIGIN_SIGNATURE_ONLY, CRYPTCLI_ORIGIN_OTHER_ROOM,
                                         CRYPTCLI_ORIGIN_PROVEN),
                       ::testing::Values(CRYPTCLI_ACCEPT_PROVEN, CRYPTCLI_ACCEPT_ANY_SIGNER,
                                         CRYPTCLI_ACCEPT_SIGNATURE_ONLY, CRYPTCLI_ACCEPT_ANYTHING)));

}  // namespace
}  // namespace CInterface

#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "client/cryptcli.h"
#include "tests/bindings/c/environment_fixture.h"
#include "tests/bindings/c/scripted_fixture.h"
#include "tests/bindings/flipped_bits.h"

namespace CInterface {
namespace {

using ::testing::HasSubstr;

constexpr std::string_view kForgedContent = TestSupport::ForgedFiles::kContent;

TEST_F(EnvironmentTest, NoFlippedBitDeliversAnythingElse) {
  Protect(std::string(kForgedContent));
  TestSupport::ExpectFlipsDeliverNothingElse(scratch, kForgedContent,
                                             [&]() -> std::optional<cryptcli_origin> {
                                               const Outcome outcome = Decrypt("flipped", "opened");
                                               if (outcome.status != CRYPTCLI_OK) return std::nullopt;
                                               return cryptcli_report_origin(outcome.report.get());
                                             });
}

class Attacks : public ScriptedTest, public ::testing::WithParamInterface<TestSupport::Attack> {};

TEST_P(Attacks, AreRefusedWithTheirOrigin) {
  GetParam().make(forged);
  scratch.Make("opened", "as before");
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), GetParam().origin);
  EXPECT_STRNE(cryptcli_report_reason(outcome.report.get()), "");
  EXPECT_EQ(scratch.Read("opened"), "as before");
}

INSTANTIATE_TEST_SUITE_P(Forged, Attacks, ::testing::ValuesIn(TestSupport::kAttacks),
                         [](const auto& attack) { return TestSupport::NameOf(attack.param); });

class Refusals : public ScriptedTest {
 protected:
  void NameInResponse(const char* member, const std::string& name) {
    OruGuiBase::KVMap response = TestSupport::ScriptedServices::RoomKeyResponse();
    response.Set(member, TestSupport::Ansi(name));
    services.Set("key", TestSupport::Json(response));
  }
};

TEST_F(Refusals, SayThatTheContentIsNotSigned) {
  forged.Envelope(kForgedContent);
  EXPECT_THAT(Open().Message(), HasSubstr("The content is not signed"));
}

TEST_F(Refusals, NameTheRoomThatWasSignedFor) {
  forged.EnvelopeSigned({forged.Signer("room 2")});
  const Outcome outcome = Open();
  EXPECT_STREQ(cryptcli_report_signed_room(outcome.report.get()), "room 2");
  EXPECT_THAT(outcome.Message(), HasSubstr("Signed for room \"room 2\""));
}

// The class ignores it, uses the wrapped key, and checks the signer.
TEST_F(Refusals, LetThroughAFileWhosePlainKeyCannotBeRead) {
  NameInResponse("plain", "no key");
  forged.EnvelopeSigned({forged.Signer()});
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_EQ(cryptcli_report_is_plain_key(outcome.report.get()), 0);
}

// Nothing is wrong with the file: later the signer can be examined.
TEST_F(Refusals, AreWorthAnotherAttemptWhenTheServiceFailed) {
  services.Set("integrity", TestSupport::Status(503));
  forged.EnvelopeSigned({forged.Signer()});
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 1);
  EXPECT_EQ(cryptcli_error_http_status(outcome.error.get()), 503U);
}

TEST_F(Refusals, AreFinalWhenTheSignerWasExamined) {
  forged.EnvelopeSigned({forged.SelfSigned()});
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0);
}

TEST_F(Refusals, ReportAPlainKey) {
  forged.MakeOfOrigin(CRYPTCLI_ORIGIN_SIGNATURE_ONLY);
  EXPECT_EQ(cryptcli_report_is_plain_key(Open().report.get()), 1);
}

TEST_F(Refusals, LetThroughAGroupInHexadecimalForm) {
  std::string hex;
  for (const char byte : std::string(TestSupport::kGroup)) {
    constexpr const char* kDigits = "0123456789abcdef";
    hex += kDigits[static_cast<unsigned char>(byte) >> 4];
    hex += kDigits[byte & 15];
  }
  forged.EnvelopeSigned({forged.Signer(kScriptedRoom, hex)});
  const Outcome outcome = Open();
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_STREQ(cryptcli_report_signed_group(outcome.report.get()), TestSupport::kGroup);
}

// A NUL byte ends a C string and a traced line. What comes before it must not pass for the name.
TEST_F(Refusals, ANameWithANulIsAnotherName) {
  using namespace std::string_literals;
  const struct {
    const char* why;
    std::string room;
    std::string group;
  } rows[] = {{"room", kScriptedRoom + "\0b"s, TestSupport::kGroup},
              {"room that ends like a trace", kScriptedRoom + "]\0b"s, TestSupport::kGroup},
              {"group", kScriptedRoom, TestSupport::kGroup + "\0b"s},
              {"group that ends like a trace", kScriptedRoom, TestSupport::kGroup + "]\0b"s}};
  for (const auto& row : rows) {
    forged.EnvelopeSigned({forged.Signer(row.room, row.group)});
    const Outcome outcome = Open();
    EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << row.why;
    EXPECT_NE(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_PROVEN) << row.why;
  }
}

// The first signer is for another room. The second one's group cannot be read whole, and must not lend the
// first one its room.
TEST_F(Refusals, DoNotMixTheRoomsOfTwoSigners) {
  using namespace std::string_literals;
  TestSupport::SignerSpec second = forged.Signer(kScriptedRoom, TestSupport::kGroup + "\0b"s);
  second.hasCertificate = false;
  forged.EnvelopeSigned({forged.Signer("room 2"), second});
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
}

TEST_F(Refusals, UnusualNamesAreCompared) {
  for (const std::string room : {"room]", "room]]", "ro\nom", "room=[x]", "]", "room 1 "}) {
    NameInResponse("room", room);
    forged.EnvelopeSigned({forged.Signer(room)});
    const Outcome same = Open();
    EXPECT_EQ(same.status, CRYPTCLI_OK) << room << ": " << same.Message();
    EXPECT_EQ(cryptcli_report_signed_room(same.report.get()), room);
    forged.EnvelopeSigned({forged.Signer(room.substr(0, room.size() - 1) + "x")});
    EXPECT_EQ(cryptcli_report_origin(Open().report.get()), CRYPTCLI_ORIGIN_OTHER_ROOM) << room;
  }
}

// A group that does not begin with "QOB." is decoded before the crypt service is asked for its certificates.
// So the certificates that were found are those of "AB", whatever the crypt service calls its own group.
TEST_F(Refusals, AHexadecimalGroupIsNotItsDecodedForm) {
  NameInResponse("group", "4142");
  forged.EnvelopeSigned({forged.Signer(kScriptedRoom, "4142")});
  const Outcome outcome = Open();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_OTHER_ROOM);
  EXPECT_STREQ(cryptcli_report_signed_group(outcome.report.get()), "AB");
}

// A transport of the application may use the library while an operation waits for it.
TEST_F(Refusals, AnotherOperationOfTheThreadLeavesNoFacts) {
  scratch.Make("other",
               TestSupport::MakeEnveloped(TestSupport::MakeSigned(kForgedContent, {forged.Signer("room 2")}),
                                          {TestSupport::Pki::Get().room.certificate}));
  forged.EnvelopeSigned({forged.Signer()});
  int runs = 0;
  TestSupport::ScriptedServices others;
  services.Set("integrity", [&](const TestSupport::RecordedRequest&) {
    OruKalvix::CryptClient nested(&others.http, TestSupport::kServiceUrl, "", kScriptedRoom);
    bool isSigned = false;
    bool isVerified = false;
    EXPECT_TRUE(nested.Decrypt(OruGuiBase::File(Path("other").c_str()),
                               OruGuiBase::File(Path("nested").c_str()), isSigned, isVerified));
    runs += isVerified ? 1 : 0;
    return TestSupport::Json(R"({"integrity":[)" +
                             TestSupport::Quoted(TestSupport::Pki::Get().integrity.certificate.GetDigest()) +
                             "]}");
  });
  const Outcome outcome = Open();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_STREQ(cryptcli_report_signed_room(outcome.report.get()), kScriptedRoom);
}

TEST_F(Refusals, OfADamagedSignatureHoldUnderEveryPolicy) {
  forged.EnvelopeDamaged();
  Accept(CRYPTCLI_ACCEPT_ANYTHING);
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_DAMAGED) << outcome.Message();
  EXPECT_EQ(outcome.report, nullptr);
  EXPECT_FALSE(scratch.Exists("opened"));
}

// ---- The table of origins and policies

using Row = std::tuple<cryptcli_origin, cryptcli_policy>;
class Policy : public ScriptedTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Policy, DeliversWhatItAcceptsAndNothingElse) {
  const auto [origin, policy] = GetParam();
  forged.MakeOfOrigin(origin);
  Accept(policy);
  scratch.Make("opened", "as before");
  const Outcome outcome = Open();
  // Each policy accepts one origin more; the last one the two weakest.
  const bool accepted = policy == CRYPTCLI_ACCEPT_ANYTHING || origin + policy >= CRYPTCLI_ORIGIN_PROVEN;
  EXPECT_EQ(outcome.status, accepted ? CRYPTCLI_OK : CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  ASSERT_NE(outcome.report, nullptr);
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), origin);
  EXPECT_EQ(scratch.Read("opened"), accepted ? kForgedContent : "as before");
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

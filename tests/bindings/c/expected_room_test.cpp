#include <string>
#include <string_view>
#include <tuple>

#include "tests/bindings/c/scripted_fixture.h"

// Calls that name the room that a file has to be for.
namespace CInterface {
namespace {

using ::testing::HasSubstr;

class ExpectedRoom : public ScriptedTest {
 protected:
  static constexpr const char* kOther = TestSupport::ForgedFiles::kOtherRoom;

  void Expect(const char* room) {
    ASSERT_EQ(cryptcli_call_set_expected_room(call.get(), room, nullptr), CRYPTCLI_OK);
  }
  static TestSupport::CannedResponse KeyOf(const char* room) {
    OruGuiBase::KVMap response = TestSupport::ScriptedServices::RoomKeyResponse();
    response.Set("room", room);
    return TestSupport::Json(response);
  }
  Outcome Rekey() {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_rekey(client.get(), kScriptedRoom, Path("secret").c_str(), call.get(), report, error);
    });
  }
  static void ExpectRefused(const Outcome& outcome, std::string_view reason) {
    EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
    EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_OTHER_ROOM);
    EXPECT_THAT(cryptcli_report_reason(outcome.report.get()), HasSubstr(std::string(reason)));
  }
};

TEST_F(ExpectedRoom, OfTheFileIsProven) {
  forged.EnvelopeSigned({forged.Signer()});
  Expect(kScriptedRoom);
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_PROVEN);
}

// Without it the file would be proven: the crypt service names the room that was signed for.
TEST_F(ExpectedRoom, RefusesAFileOfAnotherRoom) {
  services.Set("key", KeyOf(kOther));
  forged.EnvelopeSigned({forged.Signer(kOther)});
  const std::string before = scratch.Read("secret");
  scratch.Make("opened", "as before");
  EXPECT_EQ(Verify("secret", kScriptedRoom).status, CRYPTCLI_OK);
  Expect(kScriptedRoom);
  constexpr std::string_view kReason =
      "Signed for room \"room 2\" of group \"QOB.group-1\"; room \"room 1\" was expected";
  ExpectRefused(Open(), kReason);
  ExpectRefused(Verify("secret", kScriptedRoom), kReason);
  ExpectRefused(Rekey(), kReason);
  EXPECT_EQ(scratch.Read("opened"), "as before");
  EXPECT_EQ(scratch.Read("secret"), before);
}

TEST_F(ExpectedRoom, DoesNotReplaceTheRoomThatTheServiceNamed) {
  forged.EnvelopeSigned({forged.Signer(kOther)});
  Expect(kOther);
  ExpectRefused(Open(), "the crypt service named room \"room 1\"");
}

/// The same expected room under each policy, for content of each origin.
class ExpectedRoomUnderPolicy
    : public ExpectedRoom,
      public ::testing::WithParamInterface<std::tuple<cryptcli_origin, cryptcli_policy>> {
 protected:
  void ExpectNothingDelivered() {
    const std::string before = scratch.Read("secret");
    scratch.Make("opened", "as before");
    for (const Outcome& outcome : {Open(), Verify("secret", kScriptedRoom), Rekey()}) {
      EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
      EXPECT_THAT(outcome.Message(), HasSubstr("room \"room 2\" was expected"));
      EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0);
      ASSERT_NE(outcome.report, nullptr);
      EXPECT_STREQ(cryptcli_report_service_room(outcome.report.get()), kScriptedRoom);
    }
    EXPECT_EQ(scratch.Read("opened"), "as before");
    EXPECT_EQ(scratch.Read("secret"), before);
  }
};

TEST_P(ExpectedRoomUnderPolicy, RefusesAnotherRoomOfTheService) {
  const auto [origin, policy] = GetParam();
  forged.MakeOfOrigin(origin);
  Accept(policy);
  // Content of origin other_room is signed for "room 2", the others for "room 1" or not at all.
  Expect(kOther);
  if (origin != CRYPTCLI_ORIGIN_OTHER_ROOM) return ExpectNothingDelivered();
  ExpectRefused(Open(), "the crypt service named room \"room 1\"");
}

TEST_P(ExpectedRoomUnderPolicy, LeavesTheChoiceOfOriginsToThePolicy) {
  const auto [origin, policy] = GetParam();
  forged.MakeOfOrigin(origin);
  Accept(policy);
  const cryptcli_status without = Open().status;
  Expect(kScriptedRoom);
  const bool isOther = origin == CRYPTCLI_ORIGIN_OTHER_ROOM;
  EXPECT_EQ(Open().status, isOther ? CRYPTCLI_ORIGIN_NOT_PROVEN : without);
}

INSTANTIATE_TEST_SUITE_P(
    Origins, ExpectedRoomUnderPolicy,
    ::testing::Combine(::testing::Values(CRYPTCLI_ORIGIN_UNSIGNED, CRYPTCLI_ORIGIN_UNPROVEN,
                                         CRYPTCLI_ORIGIN_SIGNATURE_ONLY, CRYPTCLI_ORIGIN_OTHER_ROOM,
                                         CRYPTCLI_ORIGIN_PROVEN),
                       ::testing::Values(CRYPTCLI_ACCEPT_PROVEN, CRYPTCLI_ACCEPT_ANY_SIGNER,
                                         CRYPTCLI_ACCEPT_SIGNATURE_ONLY, CRYPTCLI_ACCEPT_ANYTHING)));

// The signer names the right group and was examined, but is not in the list of that group.
TEST_F(ExpectedRoom, IsComparedWithASignatureThatIsNotProven) {
  services.Set("integrity", TestSupport::Status(404));
  forged.EnvelopeSigned({forged.Signer(kOther)});
  Accept(CRYPTCLI_ACCEPT_ANYTHING);
  EXPECT_EQ(Open().status, CRYPTCLI_OK);
  Expect(kScriptedRoom);
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_THAT(outcome.Message(), HasSubstr("Signed for room \"room 2\""));
  EXPECT_EQ(cryptcli_report_origin(outcome.report.get()), CRYPTCLI_ORIGIN_UNPROVEN);
}

TEST_F(ExpectedRoom, IsExpectedOfEverySigner) {
  services.Set("key", KeyOf(kOther));
  TestSupport::SignerSpec second = forged.Signer();
  second.hasCertificate = false;
  forged.EnvelopeSigned({forged.Signer(kOther), second});
  Expect(kOther);
  ExpectRefused(Open(), "Signed for room \"room 1\" of group \"QOB.group-1\"; room \"room 2\" was expected");
}

TEST_F(ExpectedRoom, StaysForTheNextOperationUntilItIsRemoved) {
  services.Set("key", KeyOf(kOther));
  forged.EnvelopeSigned({forged.Signer(kOther)});
  Expect(kScriptedRoom);
  EXPECT_EQ(Open().status, CRYPTCLI_ORIGIN_NOT_PROVEN);
  EXPECT_EQ(Open().status, CRYPTCLI_ORIGIN_NOT_PROVEN);
  Expect(nullptr);
  EXPECT_EQ(Open().status, CRYPTCLI_OK);
}

TEST_F(ExpectedRoom, HasToBeAName) {
  Expect(kOther);
  for (const char* bad : {"", "\xFF"}) {
    const Outcome outcome = Call([&](cryptcli_report**, cryptcli_error** error) {
      return cryptcli_call_set_expected_room(call.get(), bad, error);
    });
    EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT);
  }
  EXPECT_EQ(cryptcli_call_set_expected_room(nullptr, kOther, nullptr), CRYPTCLI_INVALID_ARGUMENT);
  // The name that was set before stays.
  forged.EnvelopeSigned({forged.Signer()});
  ExpectRefused(Open(), "room \"room 2\" was expected");
}

// ---- Files that are made

TEST_F(ExpectedRoom, RefusesToProtectForAnotherRoom) {
  scratch.Make("plain", "content");
  scratch.Make("secret", "as before");
  Expect(kOther);
  const Outcome outcome = Encrypt("plain", "secret", kScriptedRoom);
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN);
  EXPECT_EQ(outcome.report, nullptr);
  EXPECT_EQ(outcome.Message(), "The crypt service named room \"room 1\"; room \"room 2\" was expected");
  EXPECT_EQ(scratch.Read("secret"), "as before");
  Expect(kScriptedRoom);
  EXPECT_EQ(Encrypt("plain", "secret", kScriptedRoom).status, CRYPTCLI_OK);
}

TEST_F(ExpectedRoom, RefusesToProtectAgainForAnotherRoom) {
  forged.EnvelopeSigned({forged.Signer()});
  const std::string before = scratch.Read("secret");
  // The first request is for the key of the old file, the second one for the key of the new file.
  services.Once("key", KeyOf(kScriptedRoom));
  services.Once("key", KeyOf(kOther));
  Expect(kScriptedRoom);
  const Outcome outcome = Rekey();
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(outcome.report, nullptr);
  EXPECT_EQ(scratch.Read("secret"), before);
}

// Another client was faster. The second attempt forgets the facts of the first one, but not the expected
// room.
TEST_F(ExpectedRoom, OutlivesASecondAttemptAtTheFirstKey) {
  const auto none =
      TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(), "certificate", R"("")");
  scratch.Make("plain", "content");
  scratch.Make("secret", "as before");
  Expect(kScriptedRoom);
  for (int i = 0; i < 2; ++i) services.Once("key", TestSupport::Json(none));
  services.Once("newkey", TestSupport::Status(409));
  services.Once("key", KeyOf(kOther));
  const Outcome outcome = Encrypt("plain", "secret", kScriptedRoom);
  EXPECT_EQ(services.Count("newkey"), 1U);
  EXPECT_EQ(outcome.status, CRYPTCLI_ORIGIN_NOT_PROVEN) << outcome.Message();
  EXPECT_EQ(outcome.report, nullptr);
  EXPECT_EQ(scratch.Read("secret"), "as before");
}

}  // namespace
}  // namespace CInterface

#include <optional>
#include <string>
#include <tuple>

#include "tests/bindings/cpp/scripted_fixture.h"
#include "tests/bindings/flipped_bits.h"

namespace CppInterface {
namespace {

using cryptcli::Origin;
using cryptcli::Policy;
using cryptcli::Status;
using cryptcli::Target;
using ::testing::HasSubstr;

using Flips = EnvironmentTest;

TEST_F(Flips, DeliverNothingElse) {
  Protect(kContent);
  TestSupport::ExpectFlipsDeliverNothingElse(scratch, kContent, [&]() -> std::optional<cryptcli_origin> {
    const auto opened = client->Decrypt(kRoom, Path("flipped"), Path("opened"));
    if (!opened) return std::nullopt;
    return static_cast<cryptcli_origin>(opened->origin.value());
  });
}

class Attacks : public ScriptedTest, public ::testing::WithParamInterface<TestSupport::Attack> {
 protected:
  void ExpectRefused(const cryptcli::Result<cryptcli::Report>& result) {
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().code, Status::OriginNotProven) << result.error().message;
    ASSERT_TRUE(result.error().report.has_value());
    EXPECT_EQ(result.error().report->origin, static_cast<Origin>(GetParam().origin));
    EXPECT_NE(result.error().report->reason, "");
  }
};

TEST_P(Attacks, AreRefusedWithTheirOrigin) {
  GetParam().make(forged);
  scratch.Make("opened", "as before");
  ExpectRefused(Open());
  EXPECT_EQ(scratch.Read("opened"), "as before");
}

TEST_P(Attacks, DeliverNothingIntoMemory) {
  GetParam().make(forged);
  std::string opened = "as before";
  ExpectRefused(client->Decrypt(kScriptedRoom, Path("secret"), Target::ToMemory(opened)));
  EXPECT_EQ(opened, "as before");
}

TEST_P(Attacks, AreNotVerifiedAndNotProtectedAgain) {
  GetParam().make(forged);
  const std::string before = scratch.Read("secret");
  ExpectRefused(client->Verify(kScriptedRoom, Path("secret")));
  ExpectRefused(client->Rekey(kScriptedRoom, Path("secret")));
  EXPECT_EQ(scratch.Read("secret"), before);
}

INSTANTIATE_TEST_SUITE_P(Forged, Attacks, ::testing::ValuesIn(TestSupport::kAttacks),
                         [](const auto& attack) { return TestSupport::NameOf(attack.param); });

using Refusals = ScriptedTest;

TEST_F(Refusals, NameTheRoomThatWasSignedFor) {
  forged.EnvelopeSigned({forged.Signer("room 2")});
  const auto opened = Open();
  ASSERT_FALSE(opened.has_value());
  EXPECT_EQ(opened.error().report->signedRoom, "room 2");
  EXPECT_EQ(opened.error().report->serviceRoom, kScriptedRoom);
  EXPECT_THAT(opened.error().message, HasSubstr("Signed for room \"room 2\""));
}

TEST_F(Refusals, OfADamagedSignatureHoldUnderEveryPolicy) {
  forged.EnvelopeDamaged();
  const auto opened = Open(Policy::Anything);
  ASSERT_FALSE(opened.has_value());
  EXPECT_EQ(opened.error().code, Status::Damaged) << opened.error().message;
  EXPECT_EQ(opened.error().report, std::nullopt);
  EXPECT_FALSE(scratch.Exists("opened"));
}

// The crypt service names the room that was signed for, so without an expected room the file is proven.
TEST_F(Refusals, OfAnotherRoomThanTheExpectedOne) {
  OruGuiBase::KVMap response = TestSupport::ScriptedServices::RoomKeyResponse();
  response.Set("room", "room 2");
  services.Set("key", TestSupport::Json(response));
  forged.EnvelopeSigned({forged.Signer("room 2")});
  EXPECT_TRUE(Open().has_value());
  for (const std::string& expected : {std::string("room 2"), std::string(kScriptedRoom)}) {
    const auto verified = client->Verify(kScriptedRoom, Path("secret"), {.expectedRoom = expected});
    EXPECT_EQ(verified.has_value(), expected == "room 2") << expected;
    if (verified) continue;
    EXPECT_EQ(verified.error().code, Status::OriginNotProven) << verified.error().message;
    EXPECT_EQ(verified.error().report->origin, Origin::OtherRoom);
    EXPECT_THAT(verified.error().message, HasSubstr("room \"room 1\" was expected"));
  }
}

TEST_F(Refusals, OfAnExpectedRoomThatIsNoName) {
  using namespace std::string_literals;
  forged.EnvelopeSigned({forged.Signer()});
  for (const std::string& bad : {""s, "\xFF"s, kScriptedRoom + "\0b"s}) {
    const auto verified = client->Verify(kScriptedRoom, Path("secret"), {.expectedRoom = bad});
    ASSERT_FALSE(verified.has_value()) << bad;
    EXPECT_EQ(verified.error().code, Status::InvalidArgument) << verified.error().message;
    EXPECT_THAT(verified.error().message, HasSubstr("expected room"));
  }
  EXPECT_EQ(services.Count("key"), 0U);
}

// ---- The table of origins and policies

class Policies : public ScriptedTest, public ::testing::WithParamInterface<std::tuple<Origin, Policy>> {};

TEST_P(Policies, DeliverWhatTheyAcceptAndNothingElse) {
  const auto [origin, policy] = GetParam();
  forged.MakeOfOrigin(static_cast<cryptcli_origin>(origin));
  scratch.Make("opened", "as before");
  const auto opened = Open(policy);
  const bool accepted = policy == Policy::Anything || static_cast<int>(origin) + static_cast<int>(policy) >=
                                                          static_cast<int>(Origin::Proven);
  ASSERT_EQ(opened.has_value(), accepted);
  EXPECT_EQ(accepted ? opened->origin : opened.error().report.value().origin, origin);
  EXPECT_EQ(scratch.Read("opened"), accepted ? kContent : "as before");
  EXPECT_EQ(client->Verify(kScriptedRoom, Path("secret"), {.accept = policy}).has_value(), accepted);
}

INSTANTIATE_TEST_SUITE_P(Origins, Policies,
                         ::testing::Combine(::testing::Values(Origin::Unsigned, Origin::Unproven,
                                                              Origin::SignatureOnly, Origin::OtherRoom,
                                                              Origin::Proven),
                                            ::testing::Values(Policy::Proven, Policy::AnySigner,
                                                              Policy::SignatureOnly, Policy::Anything)));

}  // namespace
}  // namespace CppInterface

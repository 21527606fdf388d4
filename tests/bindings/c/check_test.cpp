#include <string>

#include "tests/bindings/c/look_fixture.h"
#include "tests/bindings/c/scripted_fixture.h"

// What cryptcli_check finds out, and that it changes nothing.
namespace CInterface {
namespace {

using CryptStand::FaultType;
using ::testing::HasSubstr;

class CheckServers : public Look {};

TEST_F(CheckServers, FindsEverythingInOrder) {
  Protect("x");
  stand.ClearEvents();
  const Outcome outcome = Check();
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  const KVMap result = ParseReport(outcome);
  EXPECT_TRUE(result.Get("ok").AsBool()) << cryptcli_report_json(outcome.report.get());
  EXPECT_EQ(StringIn(result.Get("room").AsMap(), "keyType"), "wrapped");
  ASSERT_EQ(result.Get("findings").AsArray().GetCount(), 5U);
  ExpectFinding(Finding(outcome, 0), "service", "ok");
  ExpectFinding(Finding(outcome, 1), "room", "ok");
  for (std::uint32_t i = 2; i < 5; ++i) {
    const KVMap finding = Finding(outcome, i);
    ExpectFinding(finding, "key_server", "ok");
    EXPECT_EQ(StringIn(finding, "advice"), "");
    EXPECT_EQ(finding.Get("httpStatus").AsInteger(), 200);
    EXPECT_FALSE(finding.Get("tls").AsBool());
    EXPECT_THAT(StringIn(finding, "time"), ::testing::MatchesRegex("[0-9-]+T[0-9:]+Z"));
    EXPECT_LE(std::abs(finding.Get("clockDifference").AsInteger()), 60);
  }
  ExpectOnlyReads();
}

TEST_F(CheckServers, WithoutARoomAsksTheServiceAlone) {
  const Outcome outcome = Check(nullptr);
  ExpectFinding(Finding(outcome, 0), "service", "ok");
  EXPECT_EQ(ParseReport(outcome).Get("findings").AsArray().GetCount(), 1U);
  EXPECT_FALSE(ParseReport(outcome).Contains("room"));
  ExpectOnlyReads();
}

TEST_F(CheckServers, ReportsAServiceThatCannotBeUsed) {
  const struct {
    CryptStand::Fault fault;
    const char* code;
    int httpStatus;
  } rows[] = {{{.type = FaultType::Status, .number = 401}, "unauthorised", 401},
              {{.type = FaultType::Status, .number = 503}, "server_error", 503},
              {{.type = FaultType::Down}, "unreachable", 0}};
  for (const auto& row : rows) {
    for (const char* room : {kRoom, static_cast<const char*>(nullptr)}) {
      ASSERT_TRUE(stand.SetFault(CryptStand::kCryptService, row.fault));
      const Outcome outcome = Check(room);
      const KVMap finding = Finding(outcome, 0);
      ExpectFinding(finding, "service", row.code);
      EXPECT_EQ(finding.Get("httpStatus").AsInteger(), row.httpStatus);
      EXPECT_FALSE(ParseReport(outcome).Get("ok").AsBool());
      EXPECT_EQ(ParseReport(outcome).Get("findings").AsArray().GetCount(), 1U);
      ASSERT_TRUE(stand.ClearFaults(CryptStand::kCryptService));
    }
  }
}

TEST_F(CheckServers, ReportsARoomThatIsRefused) {
  const Outcome unknown = Check("no such room");
  ExpectFinding(Finding(unknown, 0), "service", "ok");
  ExpectFinding(Finding(unknown, 1), "room", "unknown_room");
  EXPECT_EQ(StringIn(Finding(unknown, 1), "name"), "no such room");
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, {.locked = true}));
  ExpectFinding(Finding(Check(), 1), "room", "key_refused");
}

TEST_F(CheckServers, ReportsEachKeyServerThatFails) {
  ASSERT_TRUE(stand.SetFault(0, {.type = FaultType::Down}));
  ASSERT_TRUE(stand.SetFault(1, {.type = FaultType::MissingDate}));
  const Outcome outcome = Check();
  EXPECT_FALSE(ParseReport(outcome).Get("ok").AsBool());
  ExpectFinding(Finding(outcome, 2), "key_server", "unreachable");
  ExpectFinding(Finding(outcome, 3), "key_server", "server_error");
  EXPECT_EQ(StringIn(Finding(outcome, 3), "message"), "Invalid key server time []");
  EXPECT_FALSE(Finding(outcome, 3).Contains("time"));
  ExpectFinding(Finding(outcome, 4), "key_server", "ok");
}

// The header for the crypt service never goes to a key server.
TEST_F(CheckServers, DoesNotAdviseAHeaderForAKeyServer) {
  ASSERT_TRUE(stand.SetFault(0, {.type = FaultType::Status, .number = 401}));
  const KVMap finding = Finding(Check(), 2);
  ExpectFinding(finding, "key_server", "unauthorised");
  EXPECT_THAT(StringIn(finding, "advice"), HasSubstr("key server"));
  EXPECT_THAT(StringIn(finding, "advice"), ::testing::Not(HasSubstr("the header")));
}

TEST_F(CheckServers, MeasuresClocks) {
  stand.GetSettings().SetClockOffset(1, 3'600);
  const KVMap finding = Finding(Check(), 3);
  ExpectFinding(finding, "key_server", "ok");
  EXPECT_NEAR(static_cast<double>(finding.Get("clockDifference").AsInteger()), 3'600, 60);
  EXPECT_THAT(StringIn(finding, "advice"), HasSubstr("clock"));
}

TEST_F(CheckServers, ReportsARoomWithoutKeyServers) {
  stand.GetSettings().SetAnnouncedUrls(std::vector<std::string>{});
  const Outcome outcome = Check();
  ExpectFinding(Finding(outcome, 1), "room", "server_error");
  EXPECT_EQ(ParseReport(outcome).Get("findings").AsArray().GetCount(), 2U);
}

TEST_F(CheckServers, CanBeCancelled) {
  cryptcli_call_cancel(call.get());
  EXPECT_EQ(Check().status, CRYPTCLI_CANCELLED);
  EXPECT_EQ(Check().status, CRYPTCLI_OK);
  EXPECT_EQ(Check("").status, CRYPTCLI_INVALID_ARGUMENT);
}

// With a scripted transport, since the advice follows from the reason that a transport reports.
struct ScriptedLook : ScriptedTest {
  KVMap FirstFinding(const char* room = kScriptedRoom) {
    const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_check(client.get(), room, nullptr, report, error);
    });
    return ParseReport(outcome).Get("findings").AsArray()[0].AsMap();
  }
};

TEST_F(ScriptedLook, DoesNotTakeAnyWebServerForACryptService) {
  for (const char* body : {"<html>", "[]", "{}", R"({"status":"up"})"}) {
    services.Set("key", TestSupport::Json(body));
    for (const char* room : {kScriptedRoom, static_cast<const char*>(nullptr)}) {
      const KVMap finding = FirstFinding(room);
      EXPECT_EQ(StringIn(finding, "code"), "server_error") << body;
      EXPECT_THAT(StringIn(finding, "advice"), HasSubstr("base URL"));
    }
  }
}

// A crypt service may refuse a room by a status alone, and any web server gives it for a path that it does
// not know.
TEST_F(ScriptedLook, SaysWhenAServiceWasNotExamined) {
  services.Set("key", TestSupport::Status(404));
  for (const char* room : {kScriptedRoom, static_cast<const char*>(nullptr)}) {
    const KVMap finding = FirstFinding(room);
    EXPECT_EQ(StringIn(finding, "code"), "ok");
    EXPECT_THAT(StringIn(finding, "advice"), ::testing::StartsWith("Reachable, not examined: "));
  }
  services.Set("key", TestSupport::Json(R"({"errorid":"1","errortext":"Unknown room"})"));
  EXPECT_THAT(StringIn(FirstFinding(nullptr), "advice"), ::testing::Not(HasSubstr("not examined")));
}

TEST_F(ScriptedLook, WithoutARoomAsksForOneThatNobodyHas) {
  services.Set("key", TestSupport::Json(R"({"errorid":"1","errortext":"Unknown room"})"));
  FirstFinding(nullptr);
  FirstFinding(nullptr);
  const auto requests = services.GetRequests("key");
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_THAT(requests[0].url, HasSubstr("crypt/key/cryptcli-check-"));
  EXPECT_NE(requests[0].url, requests[1].url);
}

TEST_F(ScriptedLook, AdvisesOnCertificatesAndRedirects) {
  services.Set("key",
               TestSupport::NoExchange("Could not verify the certificate of host:443: it is self-signed"));
  EXPECT_THAT(StringIn(FirstFinding(), "advice"), HasSubstr("CA file"));
  services.Set("key", TestSupport::Status(302));
  EXPECT_THAT(StringIn(FirstFinding(), "advice"), HasSubstr("redirect"));
}

}  // namespace
}  // namespace CInterface

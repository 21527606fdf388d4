#include <filesystem>

#include "tests/end_to_end/operations_fixture.h"

using CryptStand::FaultType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

namespace TestSupport {
namespace {

class AuditLogEndToEnd : public AuditLogTest {
 protected:
  // Has one key server alone make a key for a room.
  void MakeKeyOn(std::size_t server, const char* room) {
    keyServers = {stand.GetKeyServerUrls().at(server)};
    ASSERT_TRUE(Perform("Encrypt", {{"room", Text(room)}})) << error;
    keyServers.clear();
  }
};

TEST_F(AuditLogEndToEnd, ReportsWhatHappenedOnWhichServer) {
  MakeKeyOn(1, "demo");
  keyServers = {stand.GetKeyServerUrls().at(2)};
  ASSERT_FALSE(Sign("integrity", "9"));
  keyServers.clear();
  ASSERT_TRUE(GetLog()) << error;
  EXPECT_EQ(error, "");
  EXPECT_THAT(TakeLines(), ElementsAre(kHeader, "1,QOB.1.100.1,generateWrappedKeyRequest,demo,,ok",
                                       "2,QOB.1.100.1,signRequest,demo,integrity/9,607 no such key"));
}

TEST_F(AuditLogEndToEnd, KeepsFieldsThatAreQuoted) {
  ASSERT_TRUE(stand.AddRoom("a,\"b\""));
  MakeKeyOn(0, "a,\"b\"");
  ASSERT_TRUE(GetLog()) << error;
  EXPECT_THAT(TakeLines(),
              ElementsAre(kHeader, "0,QOB.1.100.1,generateWrappedKeyRequest,\"a,\"\"b\"\"\",,ok"));
}

TEST_F(AuditLogEndToEnd, FetchingItIsAnEventOnEachServer) {
  ASSERT_TRUE(GetLog()) << error;
  EXPECT_THAT(TakeLines(), ElementsAre(kHeader));
  ASSERT_TRUE(GetLog()) << error;
  EXPECT_THAT(TakeLines(),
              ElementsAre(kHeader, "0,QOB.1.100.1,getAuditLogRequest,,,ok",
                          "1,QOB.1.100.1,getAuditLogRequest,,,ok", "2,QOB.1.100.1,getAuditLogRequest,,,ok"));
}

TEST_F(AuditLogEndToEnd, VisitsTheServersInTheOrderOfTheList) {
  for (std::size_t server = 0; server < 3; ++server) MakeKeyOn(server, "demo");
  keyServers = stand.GetKeyServerUrls();
  std::swap(keyServers.at(0), keyServers.at(2));
  ASSERT_TRUE(GetLog()) << error;
  EXPECT_THAT(TakeLines(), ElementsAre(kHeader, "2,QOB.1.100.1,generateWrappedKeyRequest,demo,,ok",
                                       "1,QOB.1.100.1,generateWrappedKeyRequest,demo,,ok",
                                       "0,QOB.1.100.1,generateWrappedKeyRequest,demo,,ok"));
}

TEST_F(AuditLogEndToEnd, LiesInTheTemporaryDirectoryUnderTheGroupsName) {
  ASSERT_TRUE(GetLog(kGroup, "Demo / \"group\"")) << error;
  const std::filesystem::path path = Result("filename");
  EXPECT_EQ(path.parent_path(), scratch.Path("temporary"));
  EXPECT_THAT(path.filename().string(),
              MatchesRegex("Audit Log Demo _ _group_ [0-9]{4}(-[0-9]{2}){3}(_[0-9]{2}){2}.*\\.csv"));
  TakeLines();
}

TEST_F(AuditLogEndToEnd, HasALargeLogOfEachServerWholeAndInOrder) {
  constexpr std::uint64_t kRecords = 20000;
  for (int server = 0; server < 3; ++server) stand.GetSettings().SetGeneratedAudit(server, kRecords);
  ASSERT_TRUE(GetLog()) << error;
  const std::vector<std::string> lines = TakeLines();
  ASSERT_THAT(lines, SizeIs(1 + 3 * kRecords));
  for (std::size_t server = 0; server < 3; ++server) {
    const std::string prefix = std::to_string(server) + ",QOB.1.100.1,";
    EXPECT_EQ(lines.at(1 + server * kRecords), prefix + "getKeyRequest,room-1,,ok");
    EXPECT_EQ(lines.at((server + 1) * kRecords),
              prefix + "generateWrappedKeyRequest,\"Room \"\"20000\"\", generated\",,ok");
  }
}

TEST_F(AuditLogEndToEnd, TakesTheHeaderOfTheFirstServerThatHasOne) {
  SetFault(0, {.type = FaultType::EmptyCsv, .operation = "getAuditLogRequest"});
  ASSERT_TRUE(GetLog()) << error;
  EXPECT_EQ(error, "") << "an empty log is a log";
  EXPECT_THAT(TakeLines(), ElementsAre(kHeader));
}

struct AuditLogCase {
  const char* name;
  CryptStand::Fault fault;
  const char* reason;
};

class PartialAuditLog : public AuditLogTest, public ::testing::WithParamInterface<AuditLogCase> {
 protected:
  void SetUp() override {
    AuditLogTest::SetUp();
    for (int server = 0; server < 3; ++server) stand.GetSettings().SetGeneratedAudit(server, 3000);
  }
};

TEST_P(PartialAuditLog, HasTheOtherServersRecordsAndReportsTheReason) {
  for (int server = 0; server < 3; ++server) {
    SCOPED_TRACE(server);
    for (int other = 0; other < 3; ++other) ASSERT_TRUE(stand.ClearFaults(other));
    SetFault(server, GetParam().fault);
    ASSERT_TRUE(GetLog()) << error;
    EXPECT_THAT(error, ::testing::StartsWith("Could not get audit log from all key servers: "));
    EXPECT_THAT(error, HasSubstr(GetParam().reason));
    std::vector<std::size_t> records(3);
    for (const std::string& line : TakeLines()) {
      if (line != kHeader) ++records.at(static_cast<std::size_t>(line.front() - '0'));
    }
    for (int other = 0; other < 3; ++other) {
      const std::size_t count = records.at(static_cast<std::size_t>(other));
      if (other == server) {
        EXPECT_EQ(count, 0U);
      } else {
        EXPECT_GE(count, 3000U) << other;
      }
    }
  }
}

TEST_P(PartialAuditLog, OfNoServerIsAFailureThatLeavesNoFile) {
  SetFaults(GetParam().fault);
  EXPECT_FALSE(GetLog());
  EXPECT_THAT(error, HasSubstr(GetParam().reason));
  ExpectNoLog();
}

constexpr const char* kCommand = "getAuditLogRequest";
INSTANTIATE_TEST_SUITE_P(
    Rows, PartialAuditLog,
    ::testing::Values(
        AuditLogCase{"Down", {.type = FaultType::Down}, "Could not connect to key server: "},
        AuditLogCase{"DiesInTheMiddle", {.type = FaultType::Cut, .operation = kCommand}, "127.0.0.1"},
        AuditLogCase{"DiesAtOnce", {.type = FaultType::Cut, .operation = kCommand, .number = 1}, "127.0.0.1"},
        AuditLogCase{"Status", {.type = FaultType::Status, .operation = kCommand, .number = 500}, "HTTP 500"},
        AuditLogCase{"SecStatus",
                     {.type = FaultType::SecStatus, .operation = kCommand, .number = 612},
                     "612 Auditlog Error"},
        AuditLogCase{"SecStatusNoNumber",
                     {.type = FaultType::SecStatus, .operation = kCommand, .text = "no"},
                     "0 Unknown Error"},
        AuditLogCase{"ErrorCode",
                     {.type = FaultType::ErrorCode, .operation = kCommand, .number = 610},
                     "610 Invalid License"},
        AuditLogCase{"JsonResponse",
                     {.type = FaultType::JsonResponse, .operation = kCommand},
                     "Unexpected content type application/json"},
        AuditLogCase{"Html",
                     {.type = FaultType::WrongContentType, .operation = kCommand},
                     "Unexpected content type text/html"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace TestSupport

#include <algorithm>

#include "stand/audit_log.h"
#include "tests/stand/admin_peer.h"

namespace CryptStand {
namespace {

constexpr const char* kHeader = "time,server,group,operation,room,key,outcome";

class AuditLogTest : public AdminTest {
 protected:
  static KVMap LogPayload(const std::string& group = kGroup) {
    return Object("type", "getAuditLogRequest", "groupId", group.c_str());
  }
  Reply FetchLog(const std::string& group = kGroup) { return RunForGroup(LogPayload(group), group); }
  // The records without their times, and without the header.
  static std::vector<std::string> Records(const std::string& csv) {
    std::vector<std::string> records;
    for (std::size_t begin = csv.find('\n') + 1; begin < csv.size();) {
      const std::size_t end = csv.find('\n', begin);
      const std::size_t comma = csv.find(',', begin);
      records.push_back(csv.substr(comma + 1, end - comma - 1));
      begin = end + 1;
    }
    return records;
  }
  void SetFault(FaultType type, int number = 0, const char* text = "") {
    ASSERT_TRUE(stand_.SetFault(0, {type, "getAuditLogRequest", 0, number, text}));
  }
};

TEST_F(AuditLogTest, RespondsWithCsv) {
  const Reply reply = FetchLog();
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.Header("Content-Type"), "text/csv; charset=utf-8");
  EXPECT_EQ(reply.Header("x-sec-status"), "(none)");
  EXPECT_EQ(reply.body, std::string(kHeader) + "\n");
}

TEST_F(AuditLogTest, ReportsWhatTheServerDidForTheGroup) {
  RunCommand(GetKeyPayload());
  Sign(SignWith("9", "integrity"));
  RunForGroup(ConfigPayload());
  EXPECT_THAT(Records(FetchLog().body),
              testing::ElementsAre("0,QOB.1.100.1,getKeyRequest,demo,,ok",
                                   "0,QOB.1.100.1,signRequest,demo,integrity/9,607 no such key",
                                   "0,QOB.1.100.1,configGroupRequest,,,ok"));
  EXPECT_THAT(Records(FetchLog().body), testing::SizeIs(4)) << "fetching the log is an event as well";
}

TEST_F(AuditLogTest, QuotesNamesThatNeedIt) {
  ASSERT_TRUE(stand_.AddRoom("a,\"b\""));
  RunCommand(GetKeyPayload(), "a%2C%22b%22");
  EXPECT_THAT(Records(FetchLog().body), testing::ElementsAre(R"(0,QOB.1.100.1,getKeyRequest,"a,""b""",,ok)"));
}

TEST_F(AuditLogTest, ReportsTheTimeOfTheServersOwnClock) {
  constexpr std::int64_t kTenYears = std::int64_t{10} * 365 * 86400;
  stand_.GetSettings().SetClockOffset(0, -kTenYears);
  RunCommand(GetKeyPayload());
  const std::string log = FetchLog().body;
  const std::string year = AuditTime(std::time(nullptr) - kTenYears).substr(0, 8);
  EXPECT_EQ(log.substr(log.find('\n') + 1, 8), year);
}

TEST_F(AuditLogTest, KeepsServersAndGroupsApart) {
  ASSERT_EQ(RunForGroup(ConfigPayload("new"), "new").Code(), 0);
  RunCommand(GetKeyPayload());
  EXPECT_THAT(Records(FetchLog("new").body), testing::ElementsAre("0,new,configGroupRequest,,,ok"));
  EXPECT_THAT(Records(FetchLog().body), testing::ElementsAre("0,QOB.1.100.1,getKeyRequest,demo,,ok"));
  const KVMap request =
      Object("keyserver", stand_.GetKeyServerUrls().at(1).c_str(), "operation", "getAuditLogRequest");
  const std::string token =
      Post(Service(std::string("crypt/authztoken/") + kGroup), request).Text("authztoken");
  EXPECT_THAT(Records(PostCommand(LogPayload(), token, 1).body), testing::IsEmpty());
}

TEST_F(AuditLogTest, LeavesOutWhatNoTokenAllowed) {
  PostCommand(GetKeyPayload(), "made up");
  EXPECT_THAT(Records(FetchLog().body), testing::IsEmpty());
}

TEST_F(AuditLogTest, RefusesInAHeader) {
  const struct {
    KVMap payload;
    const char* status;
    const char* reason;
  } rows[] = {
      {LogPayload("none"), "607", "an unknown group"},
      {Object("type", "getAuditLogRequest"), "601", "no group"},
      {With(LogPayload(), "groupId", Val(true)), "601", "a group that is no text"},
      {With(LogPayload(), "more", Val("x")), "601", "a member too many"},
      {LogPayload("new"), "609", "a token for another group"},
  };
  ASSERT_EQ(RunForGroup(ConfigPayload("new"), "new").Code(), 0);
  for (const auto& row : rows) {
    const Reply reply = RunForGroup(row.payload);
    EXPECT_EQ(reply.status, 200) << row.reason;
    EXPECT_EQ(reply.Header("x-sec-status"), row.status) << row.reason;
    EXPECT_EQ(reply.body, "") << row.reason;
  }
}

TEST_F(AuditLogTest, RefusesAMissingTokenAsEveryCommandDoes) {
  EXPECT_EQ(PostCommand(LogPayload(), "made up").Code(), 609);
}

TEST_F(AuditLogTest, PutsMadeUpRecordsBehindTheRealOnes) {
  RunCommand(GetKeyPayload());
  stand_.GetSettings().SetGeneratedAudit(0, 20000);
  const auto records = Records(FetchLog().body);
  ASSERT_EQ(records.size(), 20001U);
  EXPECT_EQ(records.front(), "0,QOB.1.100.1,getKeyRequest,demo,,ok");
  EXPECT_EQ(records.at(100), R"(0,QOB.1.100.1,generateWrappedKeyRequest,"Room ""100"", generated",,ok)");
  EXPECT_THAT(records.back(), testing::HasSubstr("20000"));
}

TEST_F(AuditLogTest, EndsInTheMiddleWhenItIsCut) {
  stand_.GetSettings().SetGeneratedAudit(0, 3000);
  const std::size_t whole = FetchLog().body.size();
  for (const int number : {0, 1, 100000}) {
    SetFault(FaultType::Cut, number);
    const Reply reply = FetchLog();
    const std::size_t received = reply.body.size();
    EXPECT_EQ(reply.status, 0) << number;
    EXPECT_LT(received, whole) << number;
    const double expected = number == 0 ? static_cast<double>(whole) / 2 : number;
    EXPECT_NEAR(static_cast<double>(received), expected, 200) << number;
  }
  ASSERT_TRUE(stand_.ClearFaults(0));
  EXPECT_GE(FetchLog().body.size(), whole) << "the server goes on as before";
}

TEST_F(AuditLogTest, SendsARefusalByFault) {
  SetFault(FaultType::SecStatus, 607);
  EXPECT_EQ(FetchLog().Header("x-sec-status"), "607");
  EXPECT_THAT(FetchLog().body, testing::StartsWith(kHeader)) << "a client has to look at the header first";
  SetFault(FaultType::SecStatus, 0, "no number");
  EXPECT_EQ(FetchLog().Header("x-sec-status"), "no number");
}

TEST_F(AuditLogTest, SendsJsonByFault) {
  SetFault(FaultType::ErrorCode, 612);
  EXPECT_EQ(FetchLog().Code(), 612);
  EXPECT_EQ(FetchLog().Header("Content-Type"), "application/json");
  ASSERT_TRUE(stand_.ClearFaults(0));
  SetFault(FaultType::JsonResponse);
  EXPECT_EQ(FetchLog().Type(), "getAuditLogResponse");
  EXPECT_EQ(FetchLog().Header("Content-Type"), "application/json");
  SetFault(FaultType::JsonResponse, 0, "signResponse");
  EXPECT_EQ(FetchLog().Type(), "signResponse");
}

TEST_F(AuditLogTest, IsEmptyByFault) {
  SetFault(FaultType::EmptyCsv);
  const Reply reply = FetchLog();
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.Header("Content-Type"), "text/csv");
  EXPECT_EQ(reply.body, "");
}

TEST_F(AuditLogTest, HasAnotherContentTypeByFault) {
  SetFault(FaultType::WrongContentType);
  EXPECT_EQ(FetchLog().Header("Content-Type"), "text/html");
  EXPECT_THAT(FetchLog().body, testing::StartsWith(kHeader));
}

class AuditSourceTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(store_.Open("", error)) << error;
  }
  void AddRecords(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(store_.AddAudit({0, 0, "g", "t", "o", "room-" + std::to_string(i), "", "ok"}));
    }
  }
  static std::size_t CountLines(const BodySource& next) {
    std::ptrdiff_t lines = 0;
    for (std::string chunk = next(); !chunk.empty(); chunk = next()) {
      EXPECT_LT(chunk.size(), 200000U) << "chunks stay small however large the log is";
      lines += std::count(chunk.begin(), chunk.end(), '\n');
    }
    return static_cast<std::size_t>(lines);
  }
  Store store_;
};

TEST_F(AuditSourceTest, ReadsManyRecordsInChunks) {
  AddRecords(1501);
  EXPECT_EQ(CountLines(OpenAuditLog(store_, {0, "g", 1234})()), 1U + 1501 + 1234);
}

TEST_F(AuditSourceTest, StartsOverEachTimeItIsOpened) {
  AddRecords(3);
  const auto open = OpenAuditLog(store_, {0, "g", 2});
  EXPECT_EQ(CountLines(open()), 6U);
  EXPECT_EQ(CountLines(open()), 6U);
}

TEST_F(AuditSourceTest, LeavesOutWhatHappensLater) {
  AddRecords(3);
  const auto open = OpenAuditLog(store_, {0, "g", 0});
  AddRecords(2);
  EXPECT_EQ(CountLines(open()), 4U);
}

}  // namespace
}  // namespace CryptStand

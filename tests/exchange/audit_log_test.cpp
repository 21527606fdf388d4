#include <filesystem>

#include "tests/exchange/audit_log_fixture.h"
#include "tests/foundation/failing_clock.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using TestSupport::Alive;
using TestSupport::CannedResponse;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::Json;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;

TEST_F(AuditLog, HasHeaderLineOnceAndRowsOfAllServers) {
  Attempt(Csv("h1,h2\na,1\nb,2\n"));
  Attempt(Csv("h1,h2\nc,3\n"));
  Attempt(Csv("h1,h2\nd,4\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h1,h2\na,1\nb,2\nc,3\nd,4\n");
  EXPECT_EQ(Error(), "");
}

TEST_F(AuditLog, ProbesFetchesTokenAndPosts) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://one.example/status",
                                           "POST https://crypt.example/api/crypt/authztoken/group%201",
                                           "POST https://one.example/rest/json"));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"getAuditLogRequest"})");
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"getAuditLogRequest","groupId":"group 1"})"));
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t");
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "Content-Type"), "text/json");
}

TEST_F(AuditLog, SendsSameEnvelopeWithAnotherTokenToEachServer) {
  for (const char* token : {"t1", "t2", "t3"}) http.Then(Alive()).Then(Token(token)).Then(Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_EQ(http.GetRequest(2).body, http.GetRequest(5).body);
  EXPECT_EQ(http.GetRequest(2).body, http.GetRequest(8).body);
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t1");
  EXPECT_EQ(HeaderOf(http.GetRequest(5), "X-SEC-AUTHZTOKEN"), "t2");
  EXPECT_EQ(HeaderOf(http.GetRequest(8), "X-SEC-AUTHZTOKEN"), "t3");
}

TEST_F(AuditLog, IsNamedAfterTheGroupAndTheTime) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  const std::filesystem::path path = Str(fileName);
  EXPECT_EQ(path.parent_path(), scratch.Path("temporary"));
  const std::string name = path.filename();
  EXPECT_THAT(name, MatchesRegex("Audit Log its name 20[0-9]{2}(-[0-9]{2}){3}(_[0-9]{2}){2}\\.csv"));
  TakeLog();
}

TEST_F(AuditLog, IsNamedWithZerosWhenClockFails) {
  AttemptAt({kOne}, Csv("h\n"));
  {
    const OruGuiBase::FailingClock clock;
    ASSERT_TRUE(Get());
  }
  EXPECT_EQ(std::filesystem::path(Str(fileName)).filename(), "Audit Log its name 0000-00-00-00_00_00.csv");
  TakeLog();
}

TEST_F(AuditLog, HasNameThatFileSystemsAccept) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get("../../a/b:c\n"));
  const std::filesystem::path path = Str(fileName);
  EXPECT_EQ(path.parent_path(), scratch.Path("temporary"));
  EXPECT_TRUE(path.filename().string().starts_with("Audit Log .._.._a_b_c_ 20")) << path;
  TakeLog();
}

// A group name of any length leaves space for the time and whole characters.
TEST_F(AuditLog, CutsLongGroupNameBeforeTime) {
  UseServers({kOne});
  http.Then(Alive());
  for (const std::size_t size : {200U, 214U, 215U, 221U, 400U}) {
    std::string name(size, 'n');
    name += "\xC3\xA4\xC3\xA4\xC3\xA4";
    http.Then(Token("t")).Then(Csv("h\n"));
    ASSERT_TRUE(Get(TestSupport::Ansi(name))) << size << Error();
    const std::string file = std::filesystem::path(Str(fileName)).filename();
    EXPECT_THAT(file, MatchesRegex("Audit Log n+(\xC3\xA4)* 20[-0-9_]*\\.csv"));
    EXPECT_LE(file.size(), 255U);
    EXPECT_GE(file.size(), 230U);
    TakeLog();
  }
}

TEST_F(AuditLog, HasNumberWhenNameIsTaken) {
  const OruGuiBase::FailingClock clock;
  AttemptAt({kOne}, Csv("h\n1\n"));
  ASSERT_TRUE(Get());
  const std::string first = Str(fileName);
  http.Then(Token("t")).Then(Csv("h\n2\n"));
  ASSERT_TRUE(Get()) << Error();
  EXPECT_EQ(std::filesystem::path(Str(fileName)).filename(), "Audit Log its name 0000-00-00-00_00_00 2.csv");
  EXPECT_EQ(TakeLog(), "h\n2\n");
  EXPECT_EQ(TestSupport::ReadFile(first), "h\n1\n");
  std::filesystem::remove(first);
}

// It lies in a directory that others may look into.
TEST_F(AuditLog, IsReadableByOwnerOnly) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(std::filesystem::status(Str(fileName)).permissions(), std::filesystem::perms(0600));
  TakeLog();
}

TEST_F(AuditLog, UsesTemporaryFileNamedAfterGroup) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  const std::filesystem::path target = http.GetRequest(2).targetFile;
  EXPECT_EQ(target.filename(), "auditlog-group 1.tmp");
  EXPECT_FALSE(std::filesystem::exists(target));
  EXPECT_THAT(scratch.GetTemporaryNames(), SizeIs(1));
  TakeLog();
}

// ---- Servers that give no log

TEST_F(AuditLog, SkipsServerThatCannotBeReached) {
  Attempt(Csv("h\na\n"));
  http.Then(NoExchange("down"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\nc\n");
  EXPECT_EQ(Error(), "Could not connect to key server: down");
}

TEST_F(AuditLog, SkipsServerWhoseExchangeFails) {
  Attempt(Status(500, "h\nnot a row\n"));
  Attempt(NoExchange("broken off"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nc\n");
  EXPECT_EQ(Error(), "broken off");
}

// A server that refuses in "x-sec-status" is skipped; the message is that of its code.
TEST_F(AuditLog, SkipsServerThatRefusesByHeader) {
  Attempt(Csv("h\nnot a row\n", {{"X-Sec-Status", "607"}}));
  Attempt(Csv("h\nb\n"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\nc\n");
  EXPECT_EQ(Error(), "607 Key Not Found");
}

TEST_F(AuditLog, FailsWhenNoServerHasLog) {
  Attempt(Status(500));
  Attempt(Csv("h\n", {{"x-sec-status", "612"}}));
  http.Then(NoExchange("down"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not connect to key server: down");
  ExpectNothingGot();
}

TEST_F(AuditLog, KeepsEarlierMessageWhenAllServersSucceed) {
  client.SetStatusTimeout("soon");
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_EQ(Error(), "Invalid timeout value [soon]");
}

struct StatusRow {
  const char* header;
  const char* message;
};

// The status header of a refusal gives its code; a string that is not a number counts as 0.
TEST_F(AuditLog, ReportsTheCodeOfTheStatusHeader) {
  const StatusRow rows[] = {
      {"607", "607 Key Not Found"}, {"601", "601 Invalid Payload"}, {"620", "620 Unknown Error"},
      {"0", "0 Unknown Error"},     {"-5", "-5 Unknown Error"},     {"no number", "0 Unknown Error"},
      {"607x", "0 Unknown Error"},  {" ", "0 Unknown Error"},
  };
  UseServers({kOne});
  http.Then(Alive());
  for (const StatusRow& row : rows) {
    http.Then(Token("t")).Then(Csv("h\na\n", {{"X-SEC-STATUS", row.header}}));
    EXPECT_FALSE(Get()) << row.header;
    EXPECT_EQ(Error(), row.message) << row.header;
    ExpectNothingGot();
  }
}

// A status header that is not a number is "0 Unknown Error", and the next server is asked.
TEST_F(AuditLog, ReadsStatusHeaderThatIsNotNumberAsCodeZero) {
  Attempt(Csv("h\nnot a row\n", {{"X-SEC-STATUS", "no number"}}));
  Attempt(Csv("h\nb\n"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\nc\n");
  EXPECT_EQ(Error(), "0 Unknown Error");
}

TEST_F(AuditLog, IgnoresEmptyStatusHeader) {
  AttemptAt({kOne}, Csv("h\na\n", {{"X-SEC-STATUS", ""}}));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\n");
}

TEST_F(AuditLog, ReportsMissingStatusHeaderToTrace) {
  const TestSupport::TraceRecorder traces;
  AttemptAt({kOne}, Csv("h\na\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

// ---- Content types

// A content type "text/csv" with parameters counts as CSV.
TEST_F(AuditLog, CutsTheContentTypeAtItsParameters) {
  AttemptAt({kOne}, Typed(Json("h\na\n"), "text/csv;charset=utf-8"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\n");
}

TEST_F(AuditLog, AcceptsContentTypeWithParametersAndInAnyCase) {
  UseServers({kOne});
  http.Then(Alive());
  for (const char* type : {"text/csv;charset=utf-8", "text/csv ; charset=utf-8", " text/csv", "Text/CSV",
                           "text/csv;", "text/csv; a=b; c=d"}) {
    http.Then(Token("t")).Then(Typed(Json("h\na\n"), type));
    ASSERT_TRUE(Get()) << type;
    EXPECT_EQ(TakeLog(), "h\na\n");
  }
}

// Any other content type is "Unexpected content type %s".
TEST_F(AuditLog, RefusesAnyOtherContentType) {
  const StatusRow rows[] = {
      {"text/plain", "Unexpected content type text/plain"},
      {"text/csvx", "Unexpected content type text/csvx"},
      {"text/html; charset=utf-8", "Unexpected content type text/html"},
      {";text/csv", "Unexpected content type "},
      {"", "Unexpected content type "},
      {"application/100%s", "Unexpected content type application/100%s"},
  };
  UseServers({kOne});
  http.Then(Alive());
  for (const StatusRow& row : rows) {
    http.Then(Token("t")).Then(Typed(Json("h\na\n"), row.header));
    EXPECT_FALSE(Get()) << row.header;
    EXPECT_EQ(Error(), row.message);
    ExpectNothingGot();
  }
}

TEST_F(AuditLog, RefusesAResponseWithoutAContentType) {
  const TestSupport::TraceRecorder traces;
  AttemptAt({kOne}, Json("h\na\n"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Unexpected content type ");
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
  ExpectNothingGot();
}

TEST_F(AuditLog, ReportsTheCodeOfARefusalInJSON) {
  AttemptAt({kOne}, Typed(ErrorCode(612), "application/json"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "612 Auditlog Error");
  ExpectNothingGot();
}

TEST_F(AuditLog, RefusesResponseOfItsOwnTypeInJSON) {
  AttemptAt({kOne}, Typed(Payload(R"({"type":"getAuditLogResponse"})"), "text/json"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Unexpected content type text/json");
  ExpectNothingGot();
}

TEST_F(AuditLog, TriesNextServerAfterResponseInJSON) {
  Attempt(Typed(ErrorCode(612), "application/json"));
  Attempt(Csv("h\nb\n"));
  Attempt(Typed(Json("{"), "application/json"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\n");
  EXPECT_EQ(Error(), "Unexpected content type application/json");
}

TEST_F(AuditLog, LooksForNoErrorInCsvBody) {
  CannedResponse refusal = ErrorCode(612);
  AttemptAt({kOne}, Typed(refusal, "text/csv"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), refusal.body + "\n");
  EXPECT_EQ(Error(), "");
}

// ---- Lines

TEST_F(AuditLog, TakesHeaderFromFirstServerThatHasOne) {
  Attempt(Csv(""));
  Attempt(Csv("h\nb\n"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\nc\n");
  EXPECT_EQ(Error(), "");
}

TEST_F(AuditLog, IsAnEmptyFileWhenAllBodiesAreEmpty) {
  AttemptAt({kOne}, Csv(""));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "");
}

TEST_F(AuditLog, EndsALastLineThatLacksItsEnd) {
  Attempt(Csv("h\na"));
  Attempt(Csv("h"));
  Attempt(Csv("h\nc"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\nc\n");
}

TEST_F(AuditLog, EndsItsLinesInANewlineAlone) {
  AttemptAt({kOne}, Csv("h\r\na\r\n\r\nb\r\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\n\nb\n");
}

TEST_F(AuditLog, CopiesLogLongerThanAnyBuffer) {
  std::string rows;
  for (int i = 0; i < 20000; ++i) rows += "row " + std::to_string(i) + "\n";
  rows += std::string(100000, 'x') + "\n";
  Attempt(Csv("h\n" + rows));
  Attempt(Csv("h\n" + rows));
  Attempt(Csv("h\n"));
  ASSERT_TRUE(Get());
  EXPECT_TRUE(TakeLog() == "h\n" + rows + rows);
}

// Another program may have written to the file while the server was asked.
TEST_F(AuditLog, AddsNoSecondHeaderToAFileThatHasContent) {
  UseServers({kOne});
  http.Then(Alive()).Then(Token("t")).Then([this](const TestSupport::RecordedRequest&) {
    for (const std::string& name : scratch.GetTemporaryNames()) {
      if (name.starts_with("Audit Log")) {
        TestSupport::WriteFile(scratch.Path("temporary") / name, "h\nold\n");
      }
    }
    return Csv("h\na\n");
  });
  ASSERT_TRUE(Get()) << Error();
  EXPECT_EQ(TakeLog(), "h\nold\na\n");
}

// ---- The rotation

TEST_F(AuditLog, BeginsAtFirstServerWhereverRotationStands) {
  TestSupport::BeginRotationAt(2);
  client.SetKeyServer(Strings({kOne, "https://two.example", "https://three.example"}));
  for (int i = 0; i < 3; ++i) Attempt(Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_EQ(http.GetLines()[0], "GET https://one.example/status");
  EXPECT_EQ(http.GetLines()[3], "GET https://two.example/status");
  EXPECT_EQ(http.GetLines()[6], "GET https://three.example/status");
}

TEST_F(AuditLog, LeavesTheNextCommandAtTheFirstServer) {
  TestSupport::BeginRotationAt(1);
  client.SetKeyServer(Strings({kOne, "https://two.example", "https://three.example"}));
  for (int i = 0; i < 3; ++i) Attempt(Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  http.Then(Token("t")).Then(Payload(R"({"type":"reencryptResponse"})"));
  ASSERT_TRUE(client.Reencrypt("g", "c"));
  EXPECT_EQ(http.GetLines().back(), "POST https://one.example/rest/json");
}

TEST_F(AuditLog, VisitsEachServerAgainNextTime) {
  UseServers({kOne, "https://two.example"});
  Attempt(Csv("h\na\n"));
  Attempt(Csv("h\nb\n"));
  ASSERT_TRUE(Get("first"));
  EXPECT_EQ(TakeLog(), "h\na\nb\n");
  http.Then(Token("t")).Then(Csv("h\nc\n")).Then(Token("t")).Then(Csv("h\nd\n"));
  ASSERT_TRUE(Get("second"));
  EXPECT_EQ(TakeLog(), "h\nc\nd\n");
}

}  // namespace
}  // namespace OruKalvix
